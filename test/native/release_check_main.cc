// main() of the tests on the fake platform: a listener, so that no test can
// skip the check that every object the fake lent was given back once.
#include "platform_test.h"

namespace {

class ReleaseCheck : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { fake::reset(); }
  // Runs before the result printer, so a failure here fails this test.
  void OnTestEnd(const ::testing::TestInfo& test) override {
    if (test.result()->Failed()) return;  // said already
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
