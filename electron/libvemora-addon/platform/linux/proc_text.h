// Parsers for the text Linux publishes under /proc and /sys, and for libdrm's
// table of AMD GPU names. They take what was read and do no I/O, so fixtures
// and fuzzers can feed them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "system/survey_types.h"

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

// What /proc/cpuinfo tells of the first processor: its name ("model name"
// on x86; "Hardware" or "Model" on ARM boards, which print them after the
// processors) and whether its "flags" line lists avx2 (x86 only: the kernel
// lists a feature only when the CPU has it and the kernel saves its
// registers).
struct CpuinfoFacts {
  std::optional<std::string_view> name;
  bool has_flags = false;
  bool avx2 = false;
};
CpuinfoFacts ParseCpuinfo(std::string_view text);

// uname(2)'s machine name as an architecture.
system::CpuArchitecture ArchitectureOf(std::string_view machine);

// Whether a supply with these sysfs "type" and "scope" attributes is the
// machine's own battery: a battery that does not power a peripheral (scope
// "Device", such as a wireless mouse).
bool IsInternalBattery(std::string_view type, std::string_view scope);

// Whether a /sys/class/drm entry is a card ("card0"), not one of its
// connectors ("card0-DP-1") or a render node ("renderD128").
bool IsDrmCard(std::string_view entry);

// The lines of a PCI device's uevent file that name its driver, its vendor and
// device ids and its slot: "DRIVER=amdgpu", "PCI_ID=1002:73BF",
// "PCI_SLOT_NAME=0000:03:00.0". Empty when the line is missing.
struct PciUevent {
  std::string_view driver;
  std::string_view pci_id;
  std::string_view slot;
};
PciUevent ParsePciUevent(std::string_view text);

// A sysfs attribute that holds one decimal count, such as amdgpu's
// mem_info_vram_total ("25753026560\n"); unset when it holds anything else or
// does not fit 64 bits.
std::optional<std::uint64_t> ParseCount(std::string_view attribute);

// A hexadecimal id, with or without "0x", up to 32 bits: a PCI revision file
// ("0xc1\n"), the device half of a PCI_ID.
std::optional<std::uint32_t> ParseHexId(std::string_view text);

// The product name that libdrm's amdgpu.ids gives a device id and revision:
// its first line "<device>,\t<revision>,\t<name>" for them.
std::optional<std::string_view> AmdgpuIdsName(std::string_view ids, std::uint32_t device,
                                              std::uint32_t revision);

}  // namespace vemora::platform::linux_text
