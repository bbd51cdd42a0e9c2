// The only door from the add-on to the operating system. Each function hands
// out one raw reading in the OS's own units (bytes, pages, flags, objects) and
// says when it failed; every formula, order of queries, range check and
// message lives above this layer. Exactly one implementation is linked:
// darwin (the real calls), linux (the same readings from /proc, /sys, sysinfo,
// uname and cpuid) or fake (scripted, for tests).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace vemora::platform {

// A value, or the code the OS gave for its failure: an errno value for
// sysctl and file reads, a kern_return_t for Mach calls. 0 means success.
template <typename T>
struct Reading {
  T value{};
  int error = 0;
  bool ok() const { return error == 0; }
};

template <typename T>
Reading<T> Value(T value) {
  return Reading<T>{value, 0};
}
template <typename T>
Reading<T> Failure(int error) {
  return Reading<T>{T{}, error};
}

// An object the OS lends the caller (Metal device, IOKit service, CF value,
// power-source snapshot, autorelease pool). Null means "none". Whoever gets
// one from a function named *_create / *_copy / *_acquire / *_push releases it
// with the matching release; the others are borrowed from their parent.
using Object = const void*;

// ---- Memory size, page accounting and the wire limit ----------------------

// { CTL_HW, HW_MEMSIZE }.
Reading<std::uint64_t> physical_memory_bytes();
// "vm.global_user_wire_limit", as the kernel's 64 bits.
Reading<std::uint64_t> global_user_wire_limit_bytes();

// A send right to the host port (mach_host_self), released with
// host_port_release (mach_port_deallocate).
using HostPort = std::uint32_t;
HostPort host_port_acquire();
void host_port_release(HostPort port);

Reading<std::uint64_t> host_page_size_bytes(HostPort port);

// The page counters the add-on sums, as the kernel's 32-bit counts.
struct VmPageCounts {
  std::uint32_t free_count = 0;
  std::uint32_t inactive_count = 0;
  std::uint32_t purgeable_count = 0;
  std::uint32_t wire_count = 0;
};
// host_statistics64(HOST_VM_INFO64).
Reading<VmPageCounts> host_vm_statistics64(HostPort port);
// host_statistics(HOST_VM_INFO), the 32-bit record.
Reading<VmPageCounts> host_vm_statistics32(HostPort port);

// { CTL_VM, VM_SWAPUSAGE }: the xsw_usage fields the add-on uses.
struct SwapUsage {
  std::uint64_t total_bytes = 0;
  std::uint64_t used_bytes = 0;
};
Reading<SwapUsage> swap_usage();

// proc_pid_rusage(RUSAGE_INFO_V4): ri_resident_size and ri_phys_footprint.
struct ProcessMemory {
  std::uint64_t resident_bytes = 0;
  std::uint64_t footprint_bytes = 0;
};
Reading<ProcessMemory> process_memory(int pid);

// ---- Metal -----------------------------------------------------------------

// MTLCreateSystemDefaultDevice; null when the machine has no Metal device.
Object metal_device_create();
void metal_device_release(Object device);
std::uint64_t metal_recommended_working_set_bytes(Object device);
// The device's name as UTF-8; empty optional when the name is nil or yields
// no UTF-8 text.
std::optional<std::string> metal_device_name(Object device);
bool metal_device_supports_family(Object device, long family);

Object autorelease_pool_push();
void autorelease_pool_pop(Object pool);

// The platform's log (NSLog on macOS; the standard error stream elsewhere).
void system_log(const char* message);

// ---- CPU and OS --------------------------------------------------------------

// "machdep.cpu.brand_string" read into a 256-byte buffer: the bytes the
// kernel wrote, which may include the terminating NUL.
Reading<std::string> cpu_brand_string();
// "hw.cputype" as the CPU survey reads it.
Reading<std::int32_t> cpu_type();
// "hw.optional.avx2_0".
Reading<std::int32_t> cpu_avx2_flag();
// "hw.cputype" as the GPU survey's platform check reads it. Apart from
// cpu_type only where an OS has no Metal: there this reading fails, so no
// Apple GPU is ever reported on it.
Reading<std::int32_t> gpu_host_cpu_type();
// "kern.osproductversion" read into a 256-byte buffer (bytes as written).
Reading<std::string> os_product_version();

// ---- Model identifier --------------------------------------------------------

// sysctlbyname("hw.model") asked for its length only.
Reading<std::size_t> hw_model_size();
// sysctlbyname("hw.model") into buffer[0, size); the value is the length the
// kernel reported.
Reading<std::size_t> hw_model_read(char* buffer, std::size_t size);

// The first "IOPlatformExpertDevice" service (released with
// io_object_release) and its "model" property (a CF value, released with
// cf_release).
Object io_platform_expert_service_acquire();
void io_object_release(Object service);
Object io_model_property_copy(Object service);

// ---- CoreFoundation values ---------------------------------------------------

enum class CfKind { kString, kData, kOther };
CfKind cf_kind(Object value);
long cf_string_length(Object string);
long cf_string_max_utf8_size(long length);
bool cf_string_to_utf8(Object string, char* buffer, long buffer_size);
long cf_data_length(Object data);
const std::uint8_t* cf_data_bytes(Object data);
Object cf_string_create(const char* utf8);
bool cf_string_equal(Object a, Object b);
void cf_release(Object value);

// ---- Power sources -----------------------------------------------------------

// IOPSCopyPowerSourcesInfo and IOPSCopyPowerSourcesList; both released with
// cf_release.
Object power_sources_info_copy();
Object power_sources_list_copy(Object info);
long power_sources_count(Object list);
// Borrowed from the list; may be null.
Object power_sources_at(Object list, long index);
// IOPSGetPowerSourceDescription, borrowed from the snapshot; may be null.
Object power_source_description(Object info, Object source);
// The description's "Type" entry, borrowed; may be null.
Object power_source_type(Object description);

}  // namespace vemora::platform
