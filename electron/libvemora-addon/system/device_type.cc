#include "system/device_type.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "platform/scoped_object.h"

namespace vemora::system {
namespace {

using platform::CfKind;
using platform::Object;
using ScopedCf = platform::Scoped<platform::cf_release>;
using ScopedService = platform::Scoped<platform::io_object_release>;

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

// "hw.model", without the zero bytes the kernel pads it with.
std::optional<std::string> ModelFromSysctl() {
  const auto size = platform::hw_model_size();
  if (!size.ok() || size.value == 0) return std::nullopt;
  std::string buffer(size.value, '\0');
  const auto read = platform::hw_model_read(buffer.data(), buffer.size());
  if (!read.ok() || read.value == 0) return std::nullopt;
  const std::size_t last = buffer.find_last_not_of('\0');
  if (last == std::string::npos) return std::nullopt;
  buffer.resize(last + 1);
  return buffer;
}

std::optional<std::string> ModelFromString(Object string) {
  const long max_bytes = platform::cf_string_max_utf8_size(platform::cf_string_length(string));
  if (max_bytes < 1 || max_bytes == std::numeric_limits<long>::max()) return std::nullopt;
  std::vector<char> buffer(static_cast<std::size_t>(max_bytes) + 1, '\0');
  if (!platform::cf_string_to_utf8(string, buffer.data(), max_bytes + 1)) return std::nullopt;
  return std::string(buffer.data());
}

// Device-tree style blocks end in NUL bytes that are no part of the name.
std::optional<std::string> ModelFromData(Object data) {
  const long length = platform::cf_data_length(data);
  if (length < 1) return std::nullopt;
  const std::uint8_t* bytes = platform::cf_data_bytes(data);
  if (bytes == nullptr) return std::nullopt;
  std::string model(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  while (!model.empty() && model.back() == '\0') model.pop_back();
  if (model.empty()) return std::nullopt;
  return model;
}

// The platform expert's "model" property, text or bytes.
std::optional<std::string> ModelFromRegistry() {
  const ScopedService service(platform::io_platform_expert_service_acquire());
  if (!service) return std::nullopt;
  const ScopedCf property(platform::io_model_property_copy(service.get()));
  if (!property) return std::nullopt;
  switch (platform::cf_kind(property.get())) {
    case CfKind::kString:
      return ModelFromString(property.get());
    case CfKind::kData:
      return ModelFromData(property.get());
    case CfKind::kOther:
      break;
  }
  return std::nullopt;
}

std::optional<std::string> ModelIdentifier() {
  if (auto model = ModelFromSysctl()) return model;
  return ModelFromRegistry();
}

bool HasInternalBattery() {
  const ScopedCf info(platform::power_sources_info_copy());
  if (!info) return false;
  const ScopedCf list(platform::power_sources_list_copy(info.get()));
  if (!list) return false;
  const ScopedCf internal_battery(platform::cf_string_create("InternalBattery"));
  if (!internal_battery) return false;
  const long count = platform::power_sources_count(list.get());
  for (long i = 0; i < count; ++i) {
    const Object source = platform::power_sources_at(list.get(), i);
    if (source == nullptr) continue;
    const Object description = platform::power_source_description(info.get(), source);
    if (description == nullptr) continue;
    const Object type = platform::power_source_type(description);
    if (type == nullptr || platform::cf_kind(type) != CfKind::kString) continue;
    if (platform::cf_string_equal(type, internal_battery.get())) return true;
  }
  return false;
}

}  // namespace

DeviceType GetDeviceType() {
  const std::optional<std::string> model = ModelIdentifier();
  if (model) {
    if (BeginsWith(*model, "MacBook")) return DeviceType::Laptop;
    if (BeginsWith(*model, "Macmini")) return DeviceType::MacMini;
    if (BeginsWith(*model, "MacStudio")) return DeviceType::MacStudio;
    if (Listed(kMacMiniModels, *model)) return DeviceType::MacMini;
    if (Listed(kMacStudioModels, *model)) return DeviceType::MacStudio;
  }
  // Identifiers such as "Mac14,6" name laptops and desktops alike; only the
  // battery tells them apart.
  if (HasInternalBattery()) return DeviceType::Laptop;
  if (!model) return DeviceType::Other;
  if (BeginsWith(*model, "iMac") || BeginsWith(*model, "MacPro") || BeginsWith(*model, "Mac")) {
    return DeviceType::Desktop;
  }
  return DeviceType::Other;
}

}  // namespace vemora::system
