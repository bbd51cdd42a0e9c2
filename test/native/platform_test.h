// Base fixture for tests on the fake platform: a fresh script before each
// test, and after it the proof that every object lent was given back once.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/fake/fake_platform.h"

namespace fake = vemora::platform::fake;

class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override { fake::reset(); }
  void TearDown() override {
    EXPECT_EQ(fake::live_objects(), (std::map<std::string, int>{})) << "objects never released";
    EXPECT_TRUE(fake::misuse().empty()) << fake::misuse().front();
  }
  static fake::Script& script() { return fake::script(); }
};

template <typename Row>
class PlatformTestWithParam : public PlatformTest, public ::testing::WithParamInterface<Row> {};

// Runs fn with the standard error stream captured and returns what it wrote.
template <typename Fn>
std::string CaptureStderr(Fn fn) {
  ::testing::internal::CaptureStderr();
  fn();
  return ::testing::internal::GetCapturedStderr();
}
