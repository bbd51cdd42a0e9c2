// The scripted fake of Apple's calls: answers from fake::script(), records
// calls and tracks every object it lends until it is released.
#include "apple/fake_apple.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace vemora::platform::apple {
namespace {

struct FakeObject {
  std::string kind;  // what must release it; empty for borrowed objects
  CfKind cf = CfKind::kOther;
  std::string text;
  bool conversion_fails = false;
  const fake::PowerSource* source = nullptr;
  std::vector<std::unique_ptr<FakeObject>> children;  // borrowed from this one

  FakeObject* Child() {
    children.push_back(std::make_unique<FakeObject>());
    return children.back().get();
  }
};

struct State {
  // Held by pointer: assigning a fresh Script in place trips GCC 12's
  // maybe-uninitialized false positive at -O3.
  std::unique_ptr<fake::Script> script = std::make_unique<fake::Script>();
  std::vector<std::string> calls;
  std::map<const void*, std::unique_ptr<FakeObject>> live;
  std::map<HostPort, bool> host_ports;  // port -> still held
  HostPort next_port = 100;
  std::vector<std::string> misuse;
};

State& state() {
  static State s;
  return s;
}

fake::Script& Script() { return *state().script; }

void Record(std::string call) { state().calls.push_back(std::move(call)); }

FakeObject* Lend(const std::string& kind, CfKind cf = CfKind::kOther, std::string text = {}) {
  auto object = std::make_unique<FakeObject>();
  object->kind = kind;
  object->cf = cf;
  object->text = std::move(text);
  FakeObject* raw = object.get();
  state().live.emplace(raw, std::move(object));
  return raw;
}

// Gives an object back; `kind` is the kind this release function takes.
void TakeBack(const void* object, const char* kind, const char* via) {
  auto& live = state().live;
  const auto it = live.find(object);
  if (it == live.end()) {
    state().misuse.push_back(std::string(via) + " of an object not lent or already released");
    return;
  }
  if (it->second->kind != kind)
    state().misuse.push_back(std::string(via) + " of a " + it->second->kind);
  live.erase(it);
}

template <typename Handle>
Handle As(FakeObject* object) {
  return reinterpret_cast<Handle>(object);
}
template <typename Handle>
FakeObject* Peek(Handle handle) {
  return reinterpret_cast<FakeObject*>(const_cast<void*>(reinterpret_cast<const void*>(handle)));
}

void CheckPort(HostPort port, const char* call) {
  if (!state().host_ports[port])
    state().misuse.push_back(std::string(call) + " on a port not held");
}

}  // namespace

// ---- sysctl -------------------------------------------------------------------

Reading<std::uint64_t> sysctl_hw_memsize() {
  Record("sysctl_hw_memsize");
  return Script().physical_memory;
}

Reading<SwapUsage> sysctl_vm_swapusage() {
  Record("sysctl_vm_swapusage");
  return Script().swap;
}

Reading<std::uint64_t> sysctlbyname_u64(const char* name) {
  Record(std::string("sysctlbyname ") + name);
  if (std::strcmp(name, "vm.global_user_wire_limit") == 0) return Script().wire_limit;
  return Failure<std::uint64_t>(ENOENT);
}

Reading<std::int32_t> sysctlbyname_i32(const char* name) {
  Record(std::string("sysctlbyname ") + name);
  if (std::strcmp(name, "hw.cputype") == 0) return Script().cpu_type;
  if (std::strcmp(name, "hw.optional.avx2_0") == 0) return Script().avx2;
  return Failure<std::int32_t>(ENOENT);
}

Reading<std::string> sysctlbyname_text256(const char* name) {
  Record(std::string("sysctlbyname ") + name);
  if (std::strcmp(name, "machdep.cpu.brand_string") == 0) {
    if (Script().brand_throws) throw std::runtime_error("fake CPU query failed");
    return Script().brand;
  }
  if (std::strcmp(name, "kern.osproductversion") == 0) return Script().os_version;
  return Failure<std::string>(ENOENT);
}

Reading<std::size_t> sysctlbyname_size(const char* name) {
  Record(std::string("sysctlbyname ") + name + " (size)");
  const auto& model = Script().hw_model;
  return model.ok() ? Value(model.value.size()) : Failure<std::size_t>(model.error);
}

Reading<std::size_t> sysctlbyname_read(const char* name, char* buffer, std::size_t size) {
  Record(std::string("sysctlbyname ") + name);
  const auto& model = Script().hw_model;
  if (!model.ok()) return Failure<std::size_t>(model.error);
  if (Script().hw_model_second_read_fails) return Failure<std::size_t>(EIO);
  if (model.value.size() > size) return Failure<std::size_t>(ENOMEM);
  std::memcpy(buffer, model.value.data(), model.value.size());
  return Value(Script().hw_model_read_length.value_or(model.value.size()));
}

// ---- Mach host statistics ------------------------------------------------------

HostPort host_port_acquire() {
  Record("mach_host_self");
  const HostPort port = state().next_port++;
  state().host_ports[port] = true;
  return port;
}

void host_port_release(HostPort port) {
  Record("mach_port_deallocate");
  auto& ports = state().host_ports;
  const auto it = ports.find(port);
  if (it == ports.end() || !it->second) {
    state().misuse.push_back("mach_port_deallocate of a port not held");
    return;
  }
  it->second = false;
}

Reading<std::uint64_t> host_page_size(HostPort port) {
  Record("host_page_size");
  CheckPort(port, "host_page_size");
  return Script().page_size;
}

Reading<VmPageCounts> host_statistics64(HostPort port) {
  Record("host_statistics64");
  CheckPort(port, "host_statistics64");
  return Script().vm64;
}

Reading<VmPageCounts> host_statistics32(HostPort port) {
  Record("host_statistics");
  CheckPort(port, "host_statistics");
  return Script().vm32;
}

// ---- A process -------------------------------------------------------------------

Reading<ProcessMemory> proc_pid_rusage(int pid) {
  Record("proc_pid_rusage");
  const auto& processes = Script().processes;
  const auto it = processes.find(pid);
  return it == processes.end() ? Failure<ProcessMemory>(ESRCH) : it->second;
}

// ---- Metal and the Objective-C runtime --------------------------------------------

MetalDevice metal_device_create() {
  Record("MTLCreateSystemDefaultDevice");
  return Script().metal_device ? As<MetalDevice>(Lend("metal device")) : nullptr;
}

void metal_device_release(MetalDevice device) {
  Record("CFRelease device");
  TakeBack(device, "metal device", "metal_device_release");
}

std::uint64_t metal_recommended_working_set_bytes(MetalDevice) {
  Record("recommendedMaxWorkingSetSize");
  return Script().working_set;
}

std::optional<std::string> metal_device_name(MetalDevice) {
  Record("name");
  return Script().metal_name;
}

bool metal_device_supports_family(MetalDevice, long family) {
  Record("supportsFamily " + std::to_string(family));
  return Script().supported_families.count(family) > 0;
}

AutoreleasePool autorelease_pool_push() {
  Record("objc_autoreleasePoolPush");
  return As<AutoreleasePool>(Lend("pool"));
}

void autorelease_pool_pop(AutoreleasePool pool) {
  Record("objc_autoreleasePoolPop");
  TakeBack(pool, "pool", "autorelease_pool_pop");
}

// NSLog writes to the standard error stream too; the prefix marks what came through it.
void ns_log(const char* message) {
  Record("NSLog");
  std::fprintf(stderr, "NSLog: %s\n", message);
}

// ---- IOKit registry and CoreFoundation values ---------------------------------------

IoService io_platform_expert_service_acquire() {
  Record("IOServiceGetMatchingService");
  return Script().platform_expert_service ? As<IoService>(Lend("service")) : nullptr;
}

void io_object_release(IoService service) {
  Record("IOObjectRelease");
  TakeBack(service, "service", "io_object_release");
}

CfValue io_model_property_copy(IoService) {
  Record("IORegistryEntryCreateCFProperty");
  const auto& property = Script().model_property;
  using Kind = fake::ModelProperty::Kind;
  if (property.kind == Kind::kAbsent) return nullptr;
  const CfKind cf = property.kind == Kind::kString ? CfKind::kString
                    : property.kind == Kind::kData ? CfKind::kData
                                                   : CfKind::kOther;
  FakeObject* object = Lend("CF value", cf, property.bytes);
  object->conversion_fails = property.utf8_conversion_fails;
  return As<CfValue>(object);
}

CfKind cf_kind(CfValue value) {
  Record("CFGetTypeID");
  return Peek(value)->cf;
}

long cf_string_length(CfValue string) {
  Record("CFStringGetLength");
  return static_cast<long>(Peek(string)->text.size());
}

long cf_string_max_utf8_size(long length) {
  Record("CFStringGetMaximumSizeForEncoding");
  return length * 3;
}

bool cf_string_to_utf8(CfValue string, char* buffer, long buffer_size) {
  Record("CFStringGetCString");
  const FakeObject* object = Peek(string);
  if (object->conversion_fails || static_cast<long>(object->text.size()) >= buffer_size) {
    return false;
  }
  std::memcpy(buffer, object->text.c_str(), object->text.size() + 1);
  return true;
}

long cf_data_length(CfValue data) {
  Record("CFDataGetLength");
  return static_cast<long>(Peek(data)->text.size());
}

const std::uint8_t* cf_data_bytes(CfValue data) {
  Record("CFDataGetBytePtr");
  const std::string& bytes = Peek(data)->text;
  return bytes.empty() ? nullptr : reinterpret_cast<const std::uint8_t*>(bytes.data());
}

CfValue cf_string_create(const char* utf8) {
  Record("CFStringCreateWithCString");
  return Script().battery_string_created ? As<CfValue>(Lend("CF value", CfKind::kString, utf8))
                                         : nullptr;
}

bool cf_string_equal(CfValue a, CfValue b) {
  Record("CFStringCompare");
  return Peek(a)->text == Peek(b)->text;
}

void cf_release(CfValue value) {
  Record("CFRelease");
  TakeBack(value, "CF value", "cf_release");
}

// ---- Power sources --------------------------------------------------------------------

PowerSourcesInfo power_sources_info_copy() {
  Record("IOPSCopyPowerSourcesInfo");
  return Script().power_info ? As<PowerSourcesInfo>(Lend("power info")) : nullptr;
}

void power_sources_info_release(PowerSourcesInfo info) {
  Record("CFRelease power info");
  TakeBack(info, "power info", "power_sources_info_release");
}

PowerSourcesList power_sources_list_copy(PowerSourcesInfo) {
  Record("IOPSCopyPowerSourcesList");
  if (!Script().power_list) return nullptr;
  FakeObject* list = Lend("power list");
  for (const auto& source : Script().power_sources) {
    list->Child()->source = source.present ? &source : nullptr;
  }
  return As<PowerSourcesList>(list);
}

void power_sources_list_release(PowerSourcesList list) {
  Record("CFRelease power list");
  TakeBack(list, "power list", "power_sources_list_release");
}

long power_sources_count(PowerSourcesList list) {
  Record("CFArrayGetCount");
  return static_cast<long>(Peek(list)->children.size());
}

CfValue power_sources_at(PowerSourcesList list, long index) {
  Record("CFArrayGetValueAtIndex");
  FakeObject* element = Peek(list)->children.at(static_cast<std::size_t>(index)).get();
  return element->source != nullptr ? As<CfValue>(element) : nullptr;
}

CfValue power_source_type(PowerSourcesInfo, CfValue source) {
  Record("IOPSGetPowerSourceDescription");
  FakeObject* element = Peek(source);
  if (element->source == nullptr) {
    state().misuse.push_back("IOPSGetPowerSourceDescription of something not a power source");
    return nullptr;
  }
  if (!element->source->has_description) return nullptr;
  Record("CFDictionaryGetValue Type");
  using Type = fake::PowerSource::Type;
  if (element->source->type_kind == Type::kMissing) return nullptr;
  FakeObject* value = element->Child();
  value->cf = element->source->type_kind == Type::kString ? CfKind::kString : CfKind::kOther;
  value->text = element->source->type;
  return As<CfValue>(value);
}

}  // namespace vemora::platform::apple

// ---- Control panel ------------------------------------------------------------------------

namespace vemora::platform::fake {

using apple::state;

Script& script() { return *state().script; }

void reset() {
  auto& s = state();
  s.script = std::make_unique<Script>();
  s.calls.clear();
  s.live.clear();
  s.host_ports.clear();
  s.misuse.clear();
}

const std::vector<std::string>& calls() { return state().calls; }

std::vector<std::string> asked(const std::vector<std::string>& prefixes) {
  std::vector<std::string> asked;
  for (const std::string& call : state().calls) {
    for (const std::string& prefix : prefixes) {
      if (call.rfind(prefix, 0) == 0) {
        asked.push_back(call);
        break;
      }
    }
  }
  return asked;
}

long count(const std::string& prefix) { return static_cast<long>(asked({prefix}).size()); }

std::map<std::string, int> live_objects() {
  std::map<std::string, int> live;
  for (const auto& [pointer, object] : state().live) ++live[object->kind];
  for (const auto& [port, held] : state().host_ports) {
    if (held) ++live["host port"];
  }
  return live;
}

const std::vector<std::string>& misuse() { return state().misuse; }

}  // namespace vemora::platform::fake
