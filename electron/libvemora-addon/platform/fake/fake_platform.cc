// Scripted platform for tests: answers from fake::script(), records calls and
// tracks every object it lends until it is released.
#include "platform/fake/fake_platform.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace vemora::platform {
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
  std::vector<std::string> log_lines;
  std::map<const void*, std::unique_ptr<FakeObject>> live;
  std::map<HostPort, bool> host_ports;  // port -> still held
  HostPort next_port = 100;
  std::vector<std::string> misuse;
  int acquired = 0;
};

State& state() {
  static State s;
  return s;
}

void Record(const char* call) { state().calls.emplace_back(call); }

FakeObject* Lend(const std::string& kind, CfKind cf = CfKind::kOther, std::string text = {}) {
  auto object = std::make_unique<FakeObject>();
  object->kind = kind;
  object->cf = cf;
  object->text = std::move(text);
  FakeObject* raw = object.get();
  state().live.emplace(raw, std::move(object));
  ++state().acquired;
  return raw;
}

// Gives an object back; `kinds` lists the kinds this release function takes.
void TakeBack(Object object, std::initializer_list<const char*> kinds, const char* via) {
  auto& live = state().live;
  const auto it = live.find(object);
  if (it == live.end()) {
    state().misuse.push_back(std::string(via) + " of an object not lent or already released");
    return;
  }
  bool accepted = false;
  for (const char* kind : kinds) accepted = accepted || it->second->kind == kind;
  if (!accepted) state().misuse.push_back(std::string(via) + " of a " + it->second->kind);
  live.erase(it);
}

const FakeObject* Peek(Object object) { return static_cast<const FakeObject*>(object); }
FakeObject* Mutable(Object object) {
  return const_cast<FakeObject*>(static_cast<const FakeObject*>(object));
}

constexpr std::initializer_list<const char*> kCfKinds = {"property", "power info", "power list",
                                                         "created string"};

}  // namespace

// ---- Memory -------------------------------------------------------------------

Reading<std::uint64_t> physical_memory_bytes() {
  Record("physical_memory_bytes");
  return state().script->physical_memory;
}

Reading<std::uint64_t> global_user_wire_limit_bytes() {
  Record("global_user_wire_limit_bytes");
  return state().script->wire_limit;
}

HostPort host_port_acquire() {
  Record("host_port_acquire");
  const HostPort port = state().next_port++;
  state().host_ports[port] = true;
  ++state().acquired;
  return port;
}

void host_port_release(HostPort port) {
  Record("host_port_release");
  auto& ports = state().host_ports;
  const auto it = ports.find(port);
  if (it == ports.end() || !it->second) {
    state().misuse.push_back("host_port_release of a port not held");
    return;
  }
  it->second = false;
}

Reading<std::uint64_t> host_page_size_bytes(HostPort port) {
  Record("host_page_size_bytes");
  if (!state().host_ports[port])
    state().misuse.push_back("host_page_size_bytes on a port not held");
  return state().script->page_size;
}

Reading<VmPageCounts> host_vm_statistics64(HostPort port) {
  Record("host_vm_statistics64");
  if (!state().host_ports[port])
    state().misuse.push_back("host_vm_statistics64 on a port not held");
  return state().script->vm64;
}

Reading<VmPageCounts> host_vm_statistics32(HostPort port) {
  Record("host_vm_statistics32");
  if (!state().host_ports[port])
    state().misuse.push_back("host_vm_statistics32 on a port not held");
  return state().script->vm32;
}

Reading<SwapUsage> swap_usage() {
  Record("swap_usage");
  return state().script->swap;
}

Reading<ProcessMemory> process_memory(int pid) {
  Record("process_memory");
  const auto& processes = state().script->processes;
  const auto it = processes.find(pid);
  return it == processes.end() ? Failure<ProcessMemory>(ESRCH) : it->second;
}

// ---- Metal ----------------------------------------------------------------------

Object metal_device_create() {
  Record("metal_device_create");
  return state().script->metal_device ? Lend("metal device") : nullptr;
}

void metal_device_release(Object device) {
  Record("metal_device_release");
  TakeBack(device, {"metal device"}, "metal_device_release");
}

std::uint64_t metal_recommended_working_set_bytes(Object) {
  Record("metal_recommended_working_set_bytes");
  return state().script->working_set;
}

std::optional<std::string> metal_device_name(Object) {
  Record("metal_device_name");
  return state().script->metal_name;
}

bool metal_device_supports_family(Object, long family) {
  state().calls.push_back("metal_device_supports_family " + std::to_string(family));
  return state().script->supported_families.count(family) > 0;
}

Object autorelease_pool_push() {
  Record("autorelease_pool_push");
  return Lend("pool");
}

void autorelease_pool_pop(Object pool) {
  Record("autorelease_pool_pop");
  TakeBack(pool, {"pool"}, "autorelease_pool_pop");
}

void system_log(const char* message) {
  Record("system_log");
  state().log_lines.emplace_back(message);
}

// ---- CPU and OS -------------------------------------------------------------------

Reading<std::string> cpu_brand_string() {
  Record("cpu_brand_string");
  if (state().script->brand_throws) throw std::runtime_error("fake CPU query failed");
  return state().script->brand;
}

Reading<std::int32_t> cpu_type() {
  Record("cpu_type");
  return state().script->cpu_type;
}

Reading<std::int32_t> cpu_avx2_flag() {
  Record("cpu_avx2_flag");
  return state().script->avx2;
}

Reading<std::int32_t> gpu_host_cpu_type() {
  Record("gpu_host_cpu_type");
  return state().script->gpu_host_cpu_type;
}

Reading<std::string> os_product_version() {
  Record("os_product_version");
  return state().script->os_version;
}

// ---- Model identifier ----------------------------------------------------------------

Reading<std::size_t> hw_model_size() {
  Record("hw_model_size");
  const auto& model = state().script->hw_model;
  return model.ok() ? Value(model.value.size()) : Failure<std::size_t>(model.error);
}

Reading<std::size_t> hw_model_read(char* buffer, std::size_t size) {
  Record("hw_model_read");
  const auto& model = state().script->hw_model;
  if (!model.ok()) return Failure<std::size_t>(model.error);
  if (state().script->hw_model_second_read_fails) return Failure<std::size_t>(EIO);
  if (model.value.size() > size) return Failure<std::size_t>(ENOMEM);
  std::memcpy(buffer, model.value.data(), model.value.size());
  return Value(state().script->hw_model_read_length.value_or(model.value.size()));
}

Object io_platform_expert_service_acquire() {
  Record("io_platform_expert_service_acquire");
  return state().script->platform_expert_service ? Lend("service") : nullptr;
}

void io_object_release(Object service) {
  Record("io_object_release");
  TakeBack(service, {"service"}, "io_object_release");
}

Object io_model_property_copy(Object) {
  Record("io_model_property_copy");
  const auto& property = state().script->model_property;
  using Kind = fake::ModelProperty::Kind;
  if (property.kind == Kind::kAbsent) return nullptr;
  const CfKind cf = property.kind == Kind::kString ? CfKind::kString
                    : property.kind == Kind::kData ? CfKind::kData
                                                   : CfKind::kOther;
  FakeObject* object = Lend("property", cf, property.bytes);
  object->conversion_fails = property.utf8_conversion_fails;
  return object;
}

// ---- CoreFoundation values ---------------------------------------------------------------

CfKind cf_kind(Object value) {
  Record("cf_kind");
  return Peek(value)->cf;
}

long cf_string_length(Object string) {
  Record("cf_string_length");
  return static_cast<long>(Peek(string)->text.size());
}

long cf_string_max_utf8_size(long length) {
  Record("cf_string_max_utf8_size");
  return length * 3;
}

bool cf_string_to_utf8(Object string, char* buffer, long buffer_size) {
  Record("cf_string_to_utf8");
  const FakeObject* object = Peek(string);
  if (object->conversion_fails || static_cast<long>(object->text.size()) >= buffer_size) {
    return false;
  }
  std::memcpy(buffer, object->text.c_str(), object->text.size() + 1);
  return true;
}

long cf_data_length(Object data) {
  Record("cf_data_length");
  return static_cast<long>(Peek(data)->text.size());
}

const std::uint8_t* cf_data_bytes(Object data) {
  Record("cf_data_bytes");
  const std::string& bytes = Peek(data)->text;
  return bytes.empty() ? nullptr : reinterpret_cast<const std::uint8_t*>(bytes.data());
}

Object cf_string_create(const char* utf8) {
  Record("cf_string_create");
  return state().script->battery_string_created ? Lend("created string", CfKind::kString, utf8)
                                                : nullptr;
}

bool cf_string_equal(Object a, Object b) {
  Record("cf_string_equal");
  return Peek(a)->text == Peek(b)->text;
}

void cf_release(Object value) {
  Record("cf_release");
  TakeBack(value, kCfKinds, "cf_release");
}

// ---- Power sources ---------------------------------------------------------------------

Object power_sources_info_copy() {
  Record("power_sources_info_copy");
  return state().script->power_info ? Lend("power info") : nullptr;
}

Object power_sources_list_copy(Object) {
  Record("power_sources_list_copy");
  if (!state().script->power_list) return nullptr;
  FakeObject* list = Lend("power list");
  for (const auto& source : state().script->power_sources) {
    FakeObject* element = list->Child();
    element->source = source.present ? &source : nullptr;
  }
  return list;
}

long power_sources_count(Object list) {
  Record("power_sources_count");
  return static_cast<long>(Peek(list)->children.size());
}

Object power_sources_at(Object list, long index) {
  Record("power_sources_at");
  const FakeObject* element = Peek(list)->children.at(static_cast<std::size_t>(index)).get();
  return element->source != nullptr ? element : nullptr;
}

Object power_source_description(Object, Object source) {
  Record("power_source_description");
  FakeObject* element = Mutable(source);
  if (!element->source->has_description) return nullptr;
  FakeObject* dictionary = element->Child();
  dictionary->source = element->source;
  return dictionary;
}

Object power_source_type(Object description) {
  Record("power_source_type");
  FakeObject* dictionary = Mutable(description);
  const fake::PowerSource* source = dictionary->source;
  if (source == nullptr) {
    state().misuse.push_back("power_source_type of something not a description");
    return nullptr;
  }
  using Type = fake::PowerSource::Type;
  if (source->type_kind == Type::kMissing) return nullptr;
  FakeObject* value = dictionary->Child();
  value->cf = source->type_kind == Type::kString ? CfKind::kString : CfKind::kOther;
  value->text = source->type;
  return value;
}

// ---- Control panel ------------------------------------------------------------------------

namespace fake {

Script& script() { return *state().script; }

void reset() {
  State& s = state();
  s.script = std::make_unique<Script>();
  s.calls.clear();
  s.log_lines.clear();
  s.live.clear();
  s.host_ports.clear();
  s.misuse.clear();
  s.acquired = 0;
}

const std::vector<std::string>& calls() { return state().calls; }
const std::vector<std::string>& system_log_lines() { return state().log_lines; }

std::map<std::string, int> live_objects() {
  std::map<std::string, int> live;
  for (const auto& [pointer, object] : state().live) ++live[object->kind];
  for (const auto& [port, held] : state().host_ports) {
    if (held) ++live["host port"];
  }
  return live;
}

const std::vector<std::string>& misuse() { return state().misuse; }
int acquired_count() { return state().acquired; }

}  // namespace fake
}  // namespace vemora::platform
