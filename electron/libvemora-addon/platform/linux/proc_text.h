// Parsers for the text files Linux publishes under /proc and /sys. They take
// the file's text and do no I/O, so fixtures and fuzzers can feed them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vemora::platform::linux_text {

// A key wanted from a "Key:   123 kB" file such as /proc/meminfo or
// /proc/<pid>/status, and the number found for it (unset when the key is
// missing or its number is malformed or too large).
struct KeyedNumber {
  std::string_view key;
  std::optional<std::uint64_t> value;
};

// Fills each wanted key that is still unset with the number of the first line
// that has the key and a well-formed number. Keys filled already are kept, so
// a file read in pieces is parsed piece by piece.
void ParseKeyedNumbers(std::string_view text, KeyedNumber* wanted, std::size_t count);

// The first line of a sysfs attribute, without its newline.
std::string_view FirstLine(std::string_view text);

// The "model name" (x86) or "Model"/"Hardware" value of /proc/cpuinfo.
std::optional<std::string_view> CpuinfoModelName(std::string_view text);

}  // namespace vemora::platform::linux_text
