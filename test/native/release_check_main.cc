// main() of the tests on the fake platform. PlatformTest checks in TearDown
// that everything lent was given back; this listener makes the same check
// after every test whatever its fixture, so a test written without
// PlatformTest cannot skip it.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/fake/fake_platform.h"

namespace {

namespace fake = vemora::platform::fake;

class ReleaseCheck : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { fake::reset(); }
  // Runs before the result printer, so a failure here fails this test.
  void OnTestEnd(const ::testing::TestInfo& test) override {
    if (test.result()->Failed()) return;  // said already, by the test or its fixture
    EXPECT_EQ(fake::live_objects(), (std::map<std::string, int>{})) << "objects never released";
    EXPECT_TRUE(fake::misuse().empty()) << fake::misuse().front();
  }
};

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new ReleaseCheck);
  return RUN_ALL_TESTS();
}
