#include "platform/linux/proc_text.h"

#include <charconv>

namespace vemora::platform::linux_text {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && (IsBlank(s.back()) || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

// Digits, then optional blanks and an optional "kB" unit. Anything else, or a
// number that does not fit 64 bits, is malformed.
std::optional<std::uint64_t> ParseNumber(std::string_view field) {
  field = TrimBlanks(field);
  std::uint64_t value = 0;
  const char* end = field.data() + field.size();
  // from_chars takes digits only (no sign, no blank) and refuses overflow.
  const auto [digits_end, error] = std::from_chars(field.data(), end, value);
  if (error != std::errc()) return std::nullopt;
  const std::string_view unit =
      TrimBlanks({digits_end, static_cast<std::size_t>(end - digits_end)});
  if (!unit.empty() && unit != "kB") return std::nullopt;
  return value;
}

// Calls visit(key, value) for each "key: value" line until it returns false.
template <typename Visit>
void ForEachKeyedLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    if (!visit(TrimBlanks(line.substr(0, colon)), line.substr(colon + 1))) return;
  }
}

// The number of the first line whose key is `key` and whose number is well
// formed: the line holds blanks, the key, blanks or carriage returns, its
// first colon, then the number. Searching for the key itself, rather than
// cutting every line into key and value, keeps the parse a small part of a
// reading's cost. Keys are plain words: no blank, colon or newline.
std::optional<std::uint64_t> FirstNumberOf(std::string_view text, std::string_view key) {
  for (std::size_t at = text.find(key); at != std::string_view::npos; at = text.find(key, at + 1)) {
    std::size_t start = at;
    while (start > 0 && IsBlank(text[start - 1])) --start;
    if (start > 0 && text[start - 1] != '\n') continue;
    std::size_t colon = at + key.size();
    while (colon < text.size() && (IsBlank(text[colon]) || text[colon] == '\r')) ++colon;
    if (colon == text.size() || text[colon] != ':') continue;
    const std::size_t end = text.find('\n', colon);
    const std::string_view field = text.substr(
        colon + 1, end == std::string_view::npos ? std::string_view::npos : end - colon - 1);
    if (const auto value = ParseNumber(field)) return value;
  }
  return std::nullopt;
}

}  // namespace

void ParseKeyedNumbers(std::string_view text, KeyedNumber* wanted, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (!wanted[i].value) wanted[i].value = FirstNumberOf(text, wanted[i].key);
  }
}

std::string_view FirstLine(std::string_view text) {
  return TrimBlanks(text.substr(0, text.find('\n')));
}

std::optional<std::string_view> CpuinfoModelName(std::string_view text) {
  std::optional<std::string_view> found;
  ForEachKeyedLine(text, [&](std::string_view key, std::string_view field) {
    if (key == "model name" || key == "Model" || key == "Hardware") {
      const std::string_view value = TrimBlanks(field);
      if (!value.empty()) found = value;
    }
    return !found;
  });
  return found;
}

std::string_view TrimBrandString(std::string_view bytes) {
  return TrimBlanks(bytes.substr(0, bytes.find('\0')));
}

bool Avx2Usable(std::uint32_t leaf1_ecx, std::uint32_t leaf7_ebx, std::uint64_t xcr0) {
  constexpr std::uint32_t kOsxsave = 1u << 27;
  constexpr std::uint32_t kAvx2 = 1u << 5;
  constexpr std::uint64_t kSseAndYmmState = 0x6;
  return (leaf1_ecx & kOsxsave) != 0 && (leaf7_ebx & kAvx2) != 0 &&
         (xcr0 & kSseAndYmmState) == kSseAndYmmState;
}

std::int32_t MachCpuType(std::string_view machine) {
  constexpr std::int32_t kAbi64 = 0x01000000;
  constexpr std::int32_t kX86 = 7;
  constexpr std::int32_t kArm = 12;
  if (machine == "x86_64") return kX86 | kAbi64;
  if (machine == "aarch64" || machine == "arm64") return kArm | kAbi64;
  if (machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86") return kX86;
  if (machine.substr(0, 3) == "arm") return kArm;
  return -1;
}

std::string_view PowerSourceType(std::string_view type, std::string_view scope) {
  if (type == "Battery" && scope != "Device") return "InternalBattery";
  return type;
}

}  // namespace vemora::platform::linux_text
