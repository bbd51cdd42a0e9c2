#include "system/device_type.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "platform/platform.h"

namespace vemora::system {
namespace {

// Model identifiers that carry no family prefix of their own.
constexpr std::string_view kMacMiniModels[] = {"Mac14,3",  "Mac14,12",   "Mac16,10",
                                               "Mac16,11", "Macmini8,1", "Macmini9,1"};
constexpr std::string_view kMacStudioModels[] = {"Mac13,1",  "Mac13,2",  "Mac14,13", "Mac14,14",
                                                 "Mac15,13", "Mac15,14", "Mac16,9"};

bool BeginsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

template <std::size_t N>
bool Listed(const std::string_view (&models)[N], std::string_view model) {
  return std::find(std::begin(models), std::end(models), model) != std::end(models);
}

}  // namespace

DeviceType GetDeviceType() {
  const std::optional<std::string> model = platform::model_identifier();
  if (model) {
    if (BeginsWith(*model, "MacBook")) return DeviceType::Laptop;
    if (BeginsWith(*model, "Macmini")) return DeviceType::MacMini;
    if (BeginsWith(*model, "MacStudio")) return DeviceType::MacStudio;
    if (Listed(kMacMiniModels, *model)) return DeviceType::MacMini;
    if (Listed(kMacStudioModels, *model)) return DeviceType::MacStudio;
  }
  // Identifiers such as "Mac14,6" name laptops and desktops alike; only the
  // battery tells them apart.
  if (platform::has_internal_battery()) return DeviceType::Laptop;
  if (!model) return DeviceType::Other;
  if (BeginsWith(*model, "iMac") || BeginsWith(*model, "MacPro") || BeginsWith(*model, "Mac")) {
    return DeviceType::Desktop;
  }
  return DeviceType::Other;
}

}  // namespace vemora::system
