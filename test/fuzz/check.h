// A property every input must keep. Breaking one aborts, so libFuzzer keeps
// the input as a crash artifact, as it does for a sanitizer report.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#define VEMORA_FUZZ_CHECK(condition)                                                        \
  do {                                                                                      \
    if (!(condition)) {                                                                     \
      std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                         \
    }                                                                                       \
  } while (0)

// A non-empty value inside text, with no blank at either end (nor a CR at its end).
inline bool TrimmedWithin(std::string_view value, std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  return !value.empty() && value.data() >= text.data() &&
         value.data() + value.size() <= text.data() + text.size() && !blank(value.front()) &&
         !blank(value.back()) && value.back() != '\r';
}
