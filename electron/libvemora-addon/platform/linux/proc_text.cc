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

CpuinfoFacts ParseCpuinfo(std::string_view text) {
  CpuinfoFacts facts;
  ForEachKeyedLine(text, [&](std::string_view key, std::string_view field) {
    if (!facts.name && (key == "model name" || key == "Model" || key == "Hardware")) {
      const std::string_view value = TrimBlanks(field);
      if (!value.empty()) facts.name = value;
    } else if (!facts.has_flags && key == "flags") {
      facts.has_flags = true;
      std::string_view flags = field;
      while (!flags.empty() && !facts.avx2) {
        const std::size_t end = flags.find(' ');
        facts.avx2 = TrimBlanks(flags.substr(0, end)) == "avx2";
        flags = end == std::string_view::npos ? std::string_view() : flags.substr(end + 1);
      }
    }
    return !(facts.name && facts.has_flags);
  });
  return facts;
}

system::CpuArchitecture ArchitectureOf(std::string_view machine) {
  if (machine == "x86_64") return system::CpuArchitecture::x86_64;
  if (machine == "aarch64" || machine == "arm64") return system::CpuArchitecture::ARM64;
  return system::CpuArchitecture::Unknown;
}

bool IsInternalBattery(std::string_view type, std::string_view scope) {
  return type == "Battery" && scope != "Device";
}

bool IsDrmCard(std::string_view entry) {
  constexpr std::string_view kPrefix = "card";
  if (entry.size() <= kPrefix.size() || entry.substr(0, kPrefix.size()) != kPrefix) return false;
  entry.remove_prefix(kPrefix.size());
  return entry.find_first_not_of("0123456789") == std::string_view::npos;
}

PciUevent ParsePciUevent(std::string_view text) {
  PciUevent uevent;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = TrimBlanks(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = line.substr(0, equals);
    const std::string_view value = line.substr(equals + 1);
    if (key == "DRIVER") {
      uevent.driver = value;
    } else if (key == "PCI_ID") {
      uevent.pci_id = value;
    } else if (key == "PCI_SLOT_NAME") {
      uevent.slot = value;
    }
  }
  return uevent;
}

std::optional<std::uint64_t> ParseCount(std::string_view attribute) {
  const std::string_view line = FirstLine(attribute);
  std::uint64_t value = 0;
  const char* end = line.data() + line.size();
  const auto [digits_end, error] = std::from_chars(line.data(), end, value);
  if (error != std::errc() || digits_end != end) return std::nullopt;
  return value;
}

std::optional<std::uint32_t> ParseHexId(std::string_view text) {
  text = TrimBlanks(text.substr(0, text.find('\n')));
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
    text.remove_prefix(2);
  std::uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [digits_end, error] = std::from_chars(text.data(), end, value, 16);
  if (error != std::errc() || digits_end != end) return std::nullopt;
  return value;
}

std::optional<std::string_view> AmdgpuIdsName(std::string_view ids, std::uint32_t device,
                                              std::uint32_t revision) {
  while (!ids.empty()) {
    const std::size_t end = ids.find('\n');
    std::string_view line = ids.substr(0, end);
    ids = end == std::string_view::npos ? std::string_view() : ids.substr(end + 1);
    // Comments and the version line have no comma.
    const std::size_t first = line.find(',');
    if (line.empty() || line[0] == '#' || first == std::string_view::npos) continue;
    const std::size_t second = line.find(',', first + 1);
    if (second == std::string_view::npos) continue;
    if (ParseHexId(line.substr(0, first)) != device ||
        ParseHexId(line.substr(first + 1, second - first - 1)) != revision) {
      continue;
    }
    const std::string_view name = TrimBlanks(line.substr(second + 1));
    if (!name.empty()) return name;
  }
  return std::nullopt;
}

}  // namespace vemora::platform::linux_text
