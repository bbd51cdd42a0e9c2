// Helpers of the tests on the fake of Apple's calls. release_check_main.cc resets the
// fake before every test and checks after it that everything lent came back.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

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

// Apple's calls that begin with one of `wanted`, in the order they were made,
// and how many began with `call`.
inline std::vector<std::string> Asked(const std::vector<std::string>& wanted) {
  std::vector<std::string> asked;
  for (const std::string& call : fake::calls()) {
    const auto begins = [&](const std::string& prefix) { return call.rfind(prefix, 0) == 0; };
    if (std::any_of(wanted.begin(), wanted.end(), begins)) asked.push_back(call);
  }
  return asked;
}
inline long Count(const std::string& call) { return static_cast<long>(Asked({call}).size()); }
