// Apple's own calls, as the macOS facts use them, behind a seam private to
// platform/darwin: apple_calls.mm makes the real calls, and the tests link a
// fake that scripts answers, records the calls in order and checks that every
// object is released. Objects are typed handles; null means "none". Whoever
// gets one from a function named *_create, *_copy, *_acquire or *_push
// releases it with the matching function; the others are borrowed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/platform.h"
#include "platform/scoped.h"

namespace vemora::platform::apple {

// Distinct pointer types, so that no object can be released through the
// wrong function.
using MetalDevice = struct MetalDeviceObject*;
using AutoreleasePool = struct AutoreleasePoolObject*;
using IoService = struct IoServiceObject*;  // an io_object_t, 0 as null
using CfValue = const struct CfValueObject*;
using PowerSourcesInfo = const struct PowerSourcesInfoObject*;
using PowerSourcesList = const struct PowerSourcesListObject*;

// ---- sysctl -------------------------------------------------------------------

// { CTL_HW, HW_MEMSIZE }.
Reading<std::uint64_t> sysctl_hw_memsize();
// { CTL_VM, VM_SWAPUSAGE }: xsu_total and xsu_used.
Reading<SwapUsage> sysctl_vm_swapusage();
// sysctlbyname of a 64-bit value ("vm.global_user_wire_limit").
Reading<std::uint64_t> sysctlbyname_u64(const char* name);
// sysctlbyname of a 32-bit value ("hw.cputype", "hw.optional.avx2_0").
Reading<std::int32_t> sysctlbyname_i32(const char* name);
// sysctlbyname into a 256-byte buffer: the bytes the kernel wrote, which may
// include the terminating NUL.
Reading<std::string> sysctlbyname_text256(const char* name);
// sysctlbyname asked for its length only, then into buffer[0, size); the
// value is the length the kernel reported.
Reading<std::size_t> sysctlbyname_size(const char* name);
Reading<std::size_t> sysctlbyname_read(const char* name, char* buffer, std::size_t size);

// ---- Mach host statistics ------------------------------------------------------

// A send right to the host port (mach_host_self), given back with
// host_port_release (mach_port_deallocate).
using HostPort = std::uint32_t;
HostPort host_port_acquire();
void host_port_release(HostPort port);

// host_page_size; the error is a kern_return_t.
Reading<std::uint64_t> host_page_size(HostPort port);

// The page counters the add-on sums, as the kernel's 32-bit counts.
struct VmPageCounts {
  std::uint32_t free_count = 0;
  std::uint32_t inactive_count = 0;
  std::uint32_t purgeable_count = 0;
  std::uint32_t wire_count = 0;
};
// host_statistics64(HOST_VM_INFO64).
Reading<VmPageCounts> host_statistics64(HostPort port);
// host_statistics(HOST_VM_INFO), the 32-bit record.
Reading<VmPageCounts> host_statistics32(HostPort port);

// ---- A process -------------------------------------------------------------------

// proc_pid_rusage(RUSAGE_INFO_V4): ri_resident_size and ri_phys_footprint.
Reading<ProcessMemory> proc_pid_rusage(int pid);

// ---- Metal and the Objective-C runtime --------------------------------------------

// MTLCreateSystemDefaultDevice; null when the machine has no Metal device.
MetalDevice metal_device_create();
void metal_device_release(MetalDevice device);
std::uint64_t metal_recommended_working_set_bytes(MetalDevice device);
// The device's name as UTF-8; empty when the name is nil or yields no UTF-8.
std::optional<std::string> metal_device_name(MetalDevice device);
bool metal_device_supports_family(MetalDevice device, long family);

AutoreleasePool autorelease_pool_push();
void autorelease_pool_pop(AutoreleasePool pool);

void ns_log(const char* message);

// ---- IOKit registry and CoreFoundation values ---------------------------------------

// The first "IOPlatformExpertDevice" service, and its "model" property.
IoService io_platform_expert_service_acquire();
void io_object_release(IoService service);
CfValue io_model_property_copy(IoService service);

enum class CfKind { kString, kData, kOther };
CfKind cf_kind(CfValue value);
long cf_string_length(CfValue string);
long cf_string_max_utf8_size(long length);
bool cf_string_to_utf8(CfValue string, char* buffer, long buffer_size);
long cf_data_length(CfValue data);
const std::uint8_t* cf_data_bytes(CfValue data);
CfValue cf_string_create(const char* utf8);
bool cf_string_equal(CfValue a, CfValue b);
void cf_release(CfValue value);

// ---- Power sources --------------------------------------------------------------------

// IOPSCopyPowerSourcesInfo and IOPSCopyPowerSourcesList.
PowerSourcesInfo power_sources_info_copy();
void power_sources_info_release(PowerSourcesInfo info);
PowerSourcesList power_sources_list_copy(PowerSourcesInfo info);
void power_sources_list_release(PowerSourcesList list);
long power_sources_count(PowerSourcesList list);
// Borrowed from the list; may be null.
CfValue power_sources_at(PowerSourcesList list, long index);
// IOPSGetPowerSourceDescription's "Type" entry, borrowed; null when the
// source has no description or the description no "Type".
CfValue power_source_type(PowerSourcesInfo info, CfValue source);

using platform::Scoped;

}  // namespace vemora::platform::apple
