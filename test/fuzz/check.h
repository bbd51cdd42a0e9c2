// What the fuzz targets share: the Linux parsers, and properties every input
// must keep. Breaking one aborts, so libFuzzer keeps the input as a crash
// artifact, as it does for a sanitizer report.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"

namespace files = vemora::platform::linux_files;
namespace text = vemora::platform::linux_text;

// An expression, so that a target may also `return` it.
#define VEMORA_FUZZ_CHECK(condition)                                                            \
  ((condition)                                                                                  \
       ? void()                                                                                 \
       : (std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition), \
          std::abort()))

// The target's body, with the input as text (and as bytes in `data`).
#define VEMORA_FUZZ_TARGET(input)                                                     \
  static void FuzzOne(std::string_view input, const std::uint8_t* data);              \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    FuzzOne({reinterpret_cast<const char*>(data), size}, data);                       \
    return 0;                                                                         \
  }                                                                                   \
  static void FuzzOne(std::string_view input, [[maybe_unused]] const std::uint8_t* data)

// A non-empty value inside text, with no blank at either end (nor a CR at its end).
inline bool TrimmedWithin(std::string_view value, std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  return !value.empty() && value.data() >= text.data() &&
         value.data() + value.size() <= text.data() + text.size() && !blank(value.front()) &&
         !blank(value.back()) && value.back() != '\r';
}
