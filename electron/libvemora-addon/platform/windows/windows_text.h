// What the Windows facts make of the bytes and numbers Windows hands back:
// the SMBIOS tables, the page file, the battery flag, UTF-16 names and the
// diagnostic lines. No Windows header and no I/O, so the tests run them on
// any OS.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace vemora::platform::windows_text {

// The product name of the SMBIOS "System Information" structure (type 1),
// from the block GetSystemFirmwareTable('RSMB') returns: an 8-byte
// RawSMBIOSData header, then the structures (DMTF DSP0134). Blank-trimmed;
// none when the table has no such structure, the name is absent or blank, or
// the table is malformed before it.
std::optional<std::string> SmbiosSystemProductName(std::string_view raw);

// The page file beyond the physical memory, from GlobalMemoryStatusEx:
// ullTotalPageFile and ullAvailPageFile are the commit limit and what is left
// of it, physical memory included. Free is the commit headroom beyond the
// available RAM, so that "more than the available RAM plus the free swap"
// is Windows' own rule: more than the commit headroom.
SwapUsage SwapBeyondPhysical(std::uint64_t total_phys, std::uint64_t avail_phys,
                             std::uint64_t total_page_file, std::uint64_t avail_page_file);

// SYSTEM_POWER_STATUS.BatteryFlag: 128 means no system battery, 255 that the
// status is unknown.
bool HasSystemBattery(std::uint8_t battery_flag);

// The text without leading and trailing blanks and NULs (cpuid's brand is
// padded with blanks, DXGI's description with NULs).
std::string_view TrimBlanks(std::string_view text);

// UTF-16 as UTF-8, up to the first NUL; an unpaired surrogate becomes U+FFFD.
std::string Utf16ToUtf8(std::u16string_view text);

// "<call>: error <code>", the code in decimal (a GetLastError value).
std::string ErrorLine(const char* call, std::uint32_t code);
// "<call>: error 0x887A0004", for an HRESULT.
std::string HresultLine(const char* call, std::int32_t hresult);

}  // namespace vemora::platform::windows_text
