// Parsers of what Windows hands back (SMBIOS bytes, page-file figures, UTF-16
// names); no OS calls.
#include "platform/windows/windows_text.h"

#include <algorithm>
#include <cstdio>

namespace vemora::platform::windows_text {
namespace {

constexpr std::size_t kRawHeaderBytes = 8;  // RawSMBIOSData before SMBIOSTableData
constexpr std::uint8_t kSystemInformation = 1;
constexpr std::uint8_t kEndOfTable = 127;
constexpr std::size_t kProductNameOffset = 5;  // DSP0134, System Information

std::uint8_t Byte(std::string_view bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]);
}

// The index-th string (1-based) of a structure's string set; index 0 means
// "no string".
std::optional<std::string_view> StringAt(std::string_view strings, std::uint8_t index) {
  if (index == 0) return std::nullopt;
  std::size_t start = 0;
  for (std::uint8_t i = 1; start < strings.size(); ++i) {
    const std::size_t end = std::min(strings.find('\0', start), strings.size());
    if (i == index) return strings.substr(start, end - start);
    start = end + 1;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> SmbiosSystemProductName(std::string_view raw) {
  if (raw.size() < kRawHeaderBytes) return std::nullopt;
  const std::uint32_t length = Byte(raw, 4) | Byte(raw, 5) << 8 | Byte(raw, 6) << 16 |
                               static_cast<std::uint32_t>(Byte(raw, 7)) << 24;
  const std::string_view table = raw.substr(kRawHeaderBytes, length);
  std::size_t at = 0;
  while (at + 4 <= table.size()) {
    const std::uint8_t type = Byte(table, at);
    const std::uint8_t formatted_bytes = Byte(table, at + 1);
    if (formatted_bytes < 4 || at + formatted_bytes > table.size()) return std::nullopt;
    // The formatted area is followed by its strings, ended by two NULs (two
    // NULs alone when there are none).
    const std::size_t strings = at + formatted_bytes;
    const std::size_t end = table.find(std::string_view("\0\0", 2), strings);
    if (end == std::string_view::npos) return std::nullopt;
    if (type == kSystemInformation) {
      if (formatted_bytes <= kProductNameOffset) return std::nullopt;
      const auto name =
          StringAt(table.substr(strings, end - strings), Byte(table, at + kProductNameOffset));
      if (!name || TrimBlanks(*name).empty()) return std::nullopt;
      return std::string(TrimBlanks(*name));
    }
    if (type == kEndOfTable) break;
    at = end + 2;
  }
  return std::nullopt;
}

SwapUsage SwapBeyondPhysical(std::uint64_t total_phys, std::uint64_t avail_phys,
                             std::uint64_t total_page_file, std::uint64_t avail_page_file) {
  const std::uint64_t total = total_page_file > total_phys ? total_page_file - total_phys : 0;
  const std::uint64_t headroom = avail_page_file > avail_phys ? avail_page_file - avail_phys : 0;
  return SwapUsage{total, total - std::min(headroom, total)};
}

bool HasSystemBattery(std::uint8_t battery_flag) {
  constexpr std::uint8_t kNoSystemBattery = 128;
  constexpr std::uint8_t kUnknownStatus = 255;
  return battery_flag != kUnknownStatus && (battery_flag & kNoSystemBattery) == 0;
}

std::string_view TrimBlanks(std::string_view text) {
  constexpr std::string_view kBlanks(" \t\0", 3);
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string Utf16ToUtf8(std::u16string_view text) {
  std::string utf8;
  for (std::size_t i = 0; i < text.size() && text[i] != u'\0'; ++i) {
    std::uint32_t code = text[i];
    if (code >= 0xD800 && code <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      code = 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (code >= 0xD800 && code <= 0xDFFF) {
      code = 0xFFFD;
    }
    if (code < 0x80) {
      utf8 += static_cast<char>(code);
    } else if (code < 0x800) {
      utf8 += static_cast<char>(0xC0 | code >> 6);
      utf8 += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      utf8 += static_cast<char>(0xE0 | code >> 12);
      utf8 += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      utf8 += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      utf8 += static_cast<char>(0xF0 | code >> 18);
      utf8 += static_cast<char>(0x80 | (code >> 12 & 0x3F));
      utf8 += static_cast<char>(0x80 | (code >> 6 & 0x3F));
      utf8 += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return utf8;
}

std::string ErrorLine(const char* call, std::uint32_t code) {
  return std::string(call) + ": error " + std::to_string(code);
}

std::string HresultLine(const char* call, std::int32_t hresult) {
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", static_cast<std::uint32_t>(hresult));
  return std::string(call) + ": error " + code;
}

}  // namespace vemora::platform::windows_text
