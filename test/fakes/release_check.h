// main() for the tests on a fake that lends objects: the fake is reset before
// every test, and a test fails if anything the fake lent is still out or was
// misused, so that no test can skip the check.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace vemora::platform::fakes {

struct Ledger {
  void (*reset)();
  std::map<std::string, int> (*live_objects)();
  const std::vector<std::string>& (*misuse)();
};

class ReleaseCheck : public ::testing::EmptyTestEventListener {
 public:
  explicit ReleaseCheck(Ledger ledger) : ledger_(ledger) {}

 private:
  void OnTestStart(const ::testing::TestInfo&) override { ledger_.reset(); }
  // Runs before the result printer, so a failure here fails this test.
  void OnTestEnd(const ::testing::TestInfo& test) override {
    if (test.result()->Failed()) return;  // said already
    EXPECT_EQ(ledger_.live_objects(), (std::map<std::string, int>{})) << "objects never released";
    EXPECT_EQ(ledger_.misuse(), std::vector<std::string>{});
  }
  Ledger ledger_;
};

inline int RunTestsCheckingReleases(int argc, char** argv, Ledger ledger) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new ReleaseCheck(ledger));
  return RUN_ALL_TESTS();
}

}  // namespace vemora::platform::fakes
