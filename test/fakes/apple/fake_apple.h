// Control panel of the fake of Apple's calls (platform/darwin/apple.h), for
// the tests of the macOS facts: every answer is scripted (a value or a
// failure), every call is recorded in order, and every object handed out is
// tracked until it is released. reset() restores a script that describes an
// Apple-silicon Mac (a 64 GiB laptop with an M2 Max).
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/darwin/apple.h"

namespace vemora::platform::fake {

using apple::VmPageCounts;

struct PowerSource {
  enum class Type { kMissing, kNotString, kString };
  bool present = true;          // false: the list holds null at this index
  bool has_description = true;  // false: no description dictionary
  Type type_kind = Type::kString;
  std::string type = "InternalBattery";
};

struct ModelProperty {
  enum class Kind { kAbsent, kString, kData, kOther };
  Kind kind = Kind::kAbsent;
  std::string bytes;  // the text or the byte block
  bool utf8_conversion_fails = false;
};

struct Script {
  // Memory.
  Reading<std::uint64_t> physical_memory = Value<std::uint64_t>(64ull << 30);
  Reading<std::uint64_t> wire_limit = Value<std::uint64_t>(48ull << 30);
  Reading<std::uint64_t> page_size = Value<std::uint64_t>(16384);
  Reading<VmPageCounts> vm64 = Value(VmPageCounts{100000, 50000, 10000, 200000});
  Reading<VmPageCounts> vm32 = Value(VmPageCounts{100000, 50000, 10000, 200000});
  Reading<SwapUsage> swap = Value(SwapUsage{2ull << 30, 1ull << 30});
  std::map<int, Reading<ProcessMemory>> processes;  // PIDs not listed fail with ESRCH

  // Metal.
  bool metal_device = true;
  std::uint64_t working_set = 48ull << 30;
  std::optional<std::string> metal_name = std::string("Apple M2 Max");
  std::set<long> supported_families = {1001, 1002, 1003, 1004, 1005, 1006, 1007, 1008};

  // CPU and OS.
  Reading<std::string> brand = Value<std::string>(std::string("Apple M2 Max\0", 13));
  bool brand_throws = false;  // the query raises std::runtime_error("fake CPU query failed")
  Reading<std::int32_t> cpu_type = Value<std::int32_t>(0x0100000C);  // "hw.cputype"
  Reading<std::int32_t> avx2 = Failure<std::int32_t>(2);
  Reading<std::string> os_version = Value<std::string>(std::string("14.5\0", 5));

  // Model identifier and power sources.
  Reading<std::string> hw_model = Value<std::string>(std::string("Mac14,6\0", 8));
  bool hw_model_second_read_fails = false;
  // The length the second read reports, when it is not the bytes written.
  std::optional<std::size_t> hw_model_read_length;
  bool platform_expert_service = true;
  ModelProperty model_property;
  bool power_info = true;
  bool power_list = true;
  bool battery_string_created = true;
  std::vector<PowerSource> power_sources = {PowerSource{}};
};

Script& script();
void reset();

// Apple's calls made since reset(), in order: the function's name, and for
// sysctlbyname the key ("sysctlbyname hw.cputype").
const std::vector<std::string>& calls();
// Those calls that begin with one of `prefixes`, in order, and how many begin
// with `prefix`.
std::vector<std::string> asked(const std::vector<std::string>& prefixes);
long count(const std::string& prefix);

// Objects handed out and not yet released, by kind ("host port",
// "metal device", "service", ...), and misuse seen (double release, release
// of an unknown object, release through the wrong function).
std::map<std::string, int> live_objects();
const std::vector<std::string>& misuse();

}  // namespace vemora::platform::fake
