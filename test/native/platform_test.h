// Helpers of the tests on the fake of Apple's calls, whose main() resets the fake
// before every test and checks after it that everything lent came back.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "apple/fake_apple.h"

namespace fake = vemora::platform::fake;

// Runs fn with the standard error stream captured and returns what it wrote.
template <typename Fn>
std::string CaptureStderr(Fn fn) {
  ::testing::internal::CaptureStderr();
  fn();
  return ::testing::internal::GetCapturedStderr();
}

// Names each TEST_P row after its `name` field.
inline constexpr auto ByName = [](const auto& info) { return std::string(info.param.name); };
