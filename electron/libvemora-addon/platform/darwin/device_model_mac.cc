// The machine facts on macOS: the model identifier from sysctlbyname
// ("hw.model"), else the IOKit platform expert's "model" property, and the
// internal battery from the IOKit power sources.
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "platform/darwin/apple.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

using apple::CfKind;
using apple::CfValue;
using ScopedCf = apple::Scoped<CfValue, apple::cf_release>;
using ScopedService = apple::Scoped<apple::IoService, apple::io_object_release>;

// "hw.model", without the zero bytes the kernel pads it with.
std::optional<std::string> ModelFromSysctl() {
  const auto size = apple::sysctlbyname_size("hw.model");
  if (!size.ok() || size.value == 0) return std::nullopt;
  std::string buffer(size.value, '\0');
  const auto read = apple::sysctlbyname_read("hw.model", buffer.data(), buffer.size());
  if (!read.ok() || read.value == 0) return std::nullopt;
  const std::size_t last = buffer.find_last_not_of('\0');
  if (last == std::string::npos) return std::nullopt;
  buffer.resize(last + 1);
  return buffer;
}

std::optional<std::string> ModelFromString(CfValue string) {
  const long max_bytes = apple::cf_string_max_utf8_size(apple::cf_string_length(string));
  if (max_bytes < 1 || max_bytes == std::numeric_limits<long>::max()) return std::nullopt;
  std::vector<char> buffer(static_cast<std::size_t>(max_bytes) + 1, '\0');
  if (!apple::cf_string_to_utf8(string, buffer.data(), max_bytes + 1)) return std::nullopt;
  return std::string(buffer.data());
}

// Device-tree style blocks end in NUL bytes that are no part of the name.
std::optional<std::string> ModelFromData(CfValue data) {
  const long length = apple::cf_data_length(data);
  if (length < 1) return std::nullopt;
  const std::uint8_t* bytes = apple::cf_data_bytes(data);
  if (bytes == nullptr) return std::nullopt;
  std::string model(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  while (!model.empty() && model.back() == '\0') model.pop_back();
  if (model.empty()) return std::nullopt;
  return model;
}

// The platform expert's "model" property, text or bytes.
std::optional<std::string> ModelFromRegistry() {
  const ScopedService service(apple::io_platform_expert_service_acquire());
  if (!service) return std::nullopt;
  const ScopedCf property(apple::io_model_property_copy(service.get()));
  if (!property) return std::nullopt;
  switch (apple::cf_kind(property.get())) {
    case CfKind::kString:
      return ModelFromString(property.get());
    case CfKind::kData:
      return ModelFromData(property.get());
    case CfKind::kOther:
      break;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> model_identifier() {
  if (auto model = ModelFromSysctl()) return model;
  return ModelFromRegistry();
}

bool has_internal_battery() {
  const apple::Scoped<apple::PowerSourcesInfo, apple::power_sources_info_release> info(
      apple::power_sources_info_copy());
  if (!info) return false;
  const apple::Scoped<apple::PowerSourcesList, apple::power_sources_list_release> list(
      apple::power_sources_list_copy(info.get()));
  if (!list) return false;
  const ScopedCf internal_battery(apple::cf_string_create("InternalBattery"));
  if (!internal_battery) return false;
  const long count = apple::power_sources_count(list.get());
  for (long i = 0; i < count; ++i) {
    const CfValue source = apple::power_sources_at(list.get(), i);
    if (source == nullptr) continue;
    const CfValue type = apple::power_source_type(info.get(), source);
    if (type == nullptr || apple::cf_kind(type) != CfKind::kString) continue;
    if (apple::cf_string_equal(type, internal_battery.get())) return true;
  }
  return false;
}

}  // namespace vemora::platform
