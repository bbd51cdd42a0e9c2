// Parsers for the text Linux publishes under /proc and /sys and decoders of
// the CPU's own answers. They take what was read and do no I/O, so fixtures
// and fuzzers can feed them.
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

// The cpuid brand string (leaves 0x80000002-4, 48 bytes) up to its first NUL,
// without the blanks Intel pads it with on either side.
std::string_view TrimBrandString(std::string_view bytes);

// AVX2 is usable only when the CPU has it (leaf 7 EBX bit 5) and the OS saves
// the YMM registers on a context switch: OSXSAVE (leaf 1 ECX bit 27) and the
// SSE and AVX state bits of XCR0 (Intel SDM vol. 1, 14.7.1).
bool Avx2Usable(std::uint32_t leaf1_ecx, std::uint32_t leaf7_ebx, std::uint64_t xcr0);

// The Mach CPU type (<mach/machine.h>) of uname(2)'s machine name: x86_64
// and arm64 as on macOS, their 32-bit families, CPU_TYPE_ANY (-1) otherwise.
std::int32_t MachCpuType(std::string_view machine);

// The "Type" a macOS power source would have for a supply with these sysfs
// type and scope attributes: a battery that does not power a peripheral
// (scope "Device", such as a wireless mouse) is the machine's own.
std::string_view PowerSourceType(std::string_view type, std::string_view scope);

}  // namespace vemora::platform::linux_text
