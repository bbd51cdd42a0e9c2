// Survey readings on Linux: cpuid, uname(2), /proc/cpuinfo, the DMI product
// name, the device tree's model and /sys/class/power_supply. The CF-like
// values are small heap objects, freed by cf_release and io_object_release.
#include <sys/utsname.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

#include "platform/linux/linux_files.h"
#include "platform/linux/proc_text.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

constexpr const char* kRoot = "";

// A string, a byte block, or a container (the power-source snapshot, its
// list, a supply, the device-tree service). Containers own what they lend.
struct LinuxObject {
  CfKind kind = CfKind::kOther;
  std::string bytes;
  std::vector<std::unique_ptr<LinuxObject>> children;
  std::vector<const LinuxObject*> items;  // a list's view of its snapshot
};

LinuxObject* Lend(CfKind kind, std::string bytes = {}) {
  auto* object = new LinuxObject;
  object->kind = kind;
  object->bytes = std::move(bytes);
  return object;
}

const LinuxObject* Get(Object object) { return static_cast<const LinuxObject*>(object); }

void Free(Object object) { delete Get(object); }

// The model name as the DMI tables give it, or a failure for none.
Reading<std::string> dmi_model() {
  auto name = linux_files::ReadDmiProductName(kRoot);
  if (name.ok() && name.value.empty()) return Failure<std::string>(ENODATA);
  return name;
}

#if defined(__x86_64__)
std::uint64_t xgetbv0() {
  std::uint32_t low = 0;
  std::uint32_t high = 0;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (std::uint64_t{high} << 32) | low;
}
#endif

}  // namespace

// ---- CPU and OS ----------------------------------------------------------------

Reading<std::string> cpu_brand_string() {
#if defined(__x86_64__)
  if (__get_cpuid_max(0x80000000, nullptr) >= 0x80000004) {
    std::uint32_t registers[12] = {};
    for (unsigned leaf = 0; leaf < 3; ++leaf) {
      std::uint32_t* r = registers + 4 * leaf;
      __cpuid(0x80000002 + leaf, r[0], r[1], r[2], r[3]);
    }
    char bytes[sizeof registers];
    std::memcpy(bytes, registers, sizeof bytes);
    const std::string_view brand = linux_text::TrimBrandString({bytes, sizeof bytes});
    if (!brand.empty()) return Value(std::string(brand));
  }
#endif
  return linux_files::ReadCpuinfoModelName(kRoot);
}

Reading<std::int32_t> cpu_type() {
  struct utsname names {};
  if (::uname(&names) != 0) return Failure<std::int32_t>(errno);
  return Value(linux_text::MachCpuType(names.machine));
}

Reading<std::int32_t> cpu_avx2_flag() {
#if defined(__x86_64__)
  // Three cpuid instructions, each asked once: under a hypervisor every one
  // traps and costs microseconds.
  const unsigned max_leaf = __get_cpuid_max(0, nullptr);
  if (max_leaf < 1) return Failure<std::int32_t>(ENOTSUP);
  std::uint32_t eax = 0, ebx = 0, ecx = 0, edx = 0;
  __cpuid(1, eax, ebx, ecx, edx);
  const std::uint32_t leaf1_ecx = ecx;
  std::uint32_t leaf7_ebx = 0;
  if (max_leaf >= 7) {
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    leaf7_ebx = ebx;
  }
  // XGETBV faults unless the OS turned on OSXSAVE.
  const std::uint64_t xcr0 = (leaf1_ecx & bit_OSXSAVE) != 0 ? xgetbv0() : 0;
  return Value<std::int32_t>(linux_text::Avx2Usable(leaf1_ecx, leaf7_ebx, xcr0) ? 1 : 0);
#else
  return Failure<std::int32_t>(ENOENT);
#endif
}

// No Metal on Linux: the GPU survey's platform check fails on every machine.
Reading<std::int32_t> gpu_host_cpu_type() { return Failure<std::int32_t>(ENOENT); }

// Only the GPU survey asks, and it stops before on Linux.
Reading<std::string> os_product_version() { return Failure<std::string>(ENOENT); }

// ---- Model identifier ------------------------------------------------------------

Reading<std::size_t> hw_model_size() {
  const auto model = dmi_model();
  if (!model.ok()) return Failure<std::size_t>(model.error);
  return Value(model.value.size());
}

Reading<std::size_t> hw_model_read(char* buffer, std::size_t size) {
  const auto model = dmi_model();
  if (!model.ok()) return Failure<std::size_t>(model.error);
  if (model.value.size() > size) return Failure<std::size_t>(ENOMEM);
  std::memcpy(buffer, model.value.data(), model.value.size());
  return Value(model.value.size());
}

// The device tree's root stands for the platform expert: both describe the
// board, and both carry its "model".
Object io_platform_expert_service_acquire() {
  return linux_files::HasDeviceTree(kRoot) ? Lend(CfKind::kOther) : nullptr;
}

void io_object_release(Object service) { Free(service); }

Object io_model_property_copy(Object) {
  auto model = linux_files::ReadDeviceTreeModel(kRoot);
  return model.ok() ? Lend(CfKind::kData, std::move(model.value)) : nullptr;
}

// ---- CoreFoundation values -----------------------------------------------------------

CfKind cf_kind(Object value) { return Get(value)->kind; }

// Lengths count UTF-8 bytes here, so the longest conversion is the length.
long cf_string_length(Object string) { return static_cast<long>(Get(string)->bytes.size()); }
long cf_string_max_utf8_size(long length) { return length; }

bool cf_string_to_utf8(Object string, char* buffer, long buffer_size) {
  const std::string& text = Get(string)->bytes;
  if (buffer_size < 1 || text.size() >= static_cast<std::size_t>(buffer_size)) return false;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return true;
}

long cf_data_length(Object data) { return static_cast<long>(Get(data)->bytes.size()); }

const std::uint8_t* cf_data_bytes(Object data) {
  const std::string& bytes = Get(data)->bytes;
  return bytes.empty() ? nullptr : reinterpret_cast<const std::uint8_t*>(bytes.data());
}

Object cf_string_create(const char* utf8) { return Lend(CfKind::kString, utf8); }

bool cf_string_equal(Object a, Object b) { return Get(a)->bytes == Get(b)->bytes; }

void cf_release(Object value) { Free(value); }

// ---- Power sources -------------------------------------------------------------------

// The snapshot owns one child per supply, which is its own description and
// owns its "Type" string when the type could be read.
Object power_sources_info_copy() {
  auto types = linux_files::ReadPowerSourceTypes(kRoot);
  if (!types.ok()) return nullptr;
  auto* info = Lend(CfKind::kOther);
  for (auto& type : types.value) {
    auto supply = std::make_unique<LinuxObject>();
    if (type) {
      auto text = std::make_unique<LinuxObject>();
      text->kind = CfKind::kString;
      text->bytes = std::move(*type);
      supply->children.push_back(std::move(text));
    }
    info->children.push_back(std::move(supply));
  }
  return info;
}

Object power_sources_list_copy(Object info) {
  auto* list = Lend(CfKind::kOther);
  for (const auto& supply : Get(info)->children) list->items.push_back(supply.get());
  return list;
}

long power_sources_count(Object list) { return static_cast<long>(Get(list)->items.size()); }

Object power_sources_at(Object list, long index) {
  const auto& items = Get(list)->items;
  if (index < 0 || static_cast<std::size_t>(index) >= items.size()) return nullptr;
  return items[static_cast<std::size_t>(index)];
}

Object power_source_description(Object, Object source) { return source; }

Object power_source_type(Object description) {
  const auto& children = Get(description)->children;
  return children.empty() ? nullptr : children.front().get();
}

}  // namespace vemora::platform
