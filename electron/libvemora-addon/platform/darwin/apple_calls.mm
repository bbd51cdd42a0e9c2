// Apple's calls behind platform/darwin/apple.h: sysctl, Mach host statistics,
// proc_pid_rusage, Metal, the Objective-C autorelease pool, NSLog, the IOKit
// registry and power sources, and CoreFoundation values. Built with ARC.
#include <CoreFoundation/CoreFoundation.h>
#include <Foundation/Foundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/ps/IOPowerSources.h>
#include <Metal/Metal.h>
#include <libproc.h>
#include <mach/mach.h>
#include <sys/resource.h>
#include <sys/sysctl.h>

#include <cerrno>
#include <cstdint>

#include "platform/darwin/apple.h"

// The runtime functions that @autoreleasepool compiles to; public in libobjc
// but declared in no SDK header.
extern "C" void* objc_autoreleasePoolPush(void);
extern "C" void objc_autoreleasePoolPop(void* pool);

namespace vemora::platform::apple {
namespace {

template <typename T>
Reading<T> SysctlByName(const char* name) {
  T value{};
  size_t length = sizeof value;
  if (::sysctlbyname(name, &value, &length, nullptr, 0) != 0) return Failure<T>(errno);
  return Value(value);
}

// IOKit objects are Mach port names; they cross the seam as pointer-sized
// handles, 0 (IO_OBJECT_NULL) as null.
IoService ToHandle(io_object_t object) {
  return reinterpret_cast<IoService>(static_cast<std::uintptr_t>(object));
}
io_object_t FromHandle(IoService service) {
  return static_cast<io_object_t>(reinterpret_cast<std::uintptr_t>(service));
}

template <typename Handle>
CFTypeRef Cf(Handle handle) {
  return reinterpret_cast<CFTypeRef>(handle);
}
template <typename Handle>
Handle FromCf(CFTypeRef value) {
  return reinterpret_cast<Handle>(value);
}

id<MTLDevice> Device(MetalDevice device) { return (__bridge id<MTLDevice>)(void*)device; }

}  // namespace

// ---- sysctl -------------------------------------------------------------------

Reading<std::uint64_t> sysctl_hw_memsize() {
  int name[] = {CTL_HW, HW_MEMSIZE};
  std::uint64_t bytes = 0;
  size_t length = sizeof bytes;
  if (::sysctl(name, 2, &bytes, &length, nullptr, 0) == -1) return Failure<std::uint64_t>(errno);
  return Value(bytes);
}

Reading<SwapUsage> sysctl_vm_swapusage() {
  int name[] = {CTL_VM, VM_SWAPUSAGE};
  xsw_usage usage = {};
  size_t length = sizeof usage;
  if (::sysctl(name, 2, &usage, &length, nullptr, 0) != 0) return Failure<SwapUsage>(errno);
  return Value(SwapUsage{usage.xsu_total, usage.xsu_used});
}

Reading<std::uint64_t> sysctlbyname_u64(const char* name) {
  return SysctlByName<std::uint64_t>(name);
}

Reading<std::int32_t> sysctlbyname_i32(const char* name) {
  return SysctlByName<std::int32_t>(name);
}

Reading<std::string> sysctlbyname_text256(const char* name) {
  char buffer[256] = {};
  size_t length = sizeof buffer;
  if (::sysctlbyname(name, buffer, &length, nullptr, 0) != 0) return Failure<std::string>(errno);
  return Value(std::string(buffer, length));
}

Reading<std::size_t> sysctlbyname_size(const char* name) {
  size_t length = 0;
  if (::sysctlbyname(name, nullptr, &length, nullptr, 0) != 0) return Failure<std::size_t>(errno);
  return Value<std::size_t>(length);
}

Reading<std::size_t> sysctlbyname_read(const char* name, char* buffer, std::size_t size) {
  size_t length = size;
  if (::sysctlbyname(name, buffer, &length, nullptr, 0) != 0) return Failure<std::size_t>(errno);
  return Value<std::size_t>(length);
}

// ---- Mach host statistics ------------------------------------------------------

HostPort host_port_acquire() { return ::mach_host_self(); }

void host_port_release(HostPort port) { ::mach_port_deallocate(::mach_task_self(), port); }

Reading<std::uint64_t> host_page_size(HostPort port) {
  vm_size_t page_size = 0;
  const kern_return_t status = ::host_page_size(port, &page_size);
  if (status != KERN_SUCCESS) return Failure<std::uint64_t>(status);
  return Value(static_cast<std::uint64_t>(page_size));
}

Reading<VmPageCounts> host_statistics64(HostPort port) {
  vm_statistics64_data_t stats = {};
  mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
  const kern_return_t status =
      ::host_statistics64(port, HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&stats), &count);
  if (status != KERN_SUCCESS) return Failure<VmPageCounts>(status);
  return Value(VmPageCounts{stats.free_count, stats.inactive_count, stats.purgeable_count,
                            stats.wire_count});
}

Reading<VmPageCounts> host_statistics32(HostPort port) {
  vm_statistics_data_t stats = {};
  mach_msg_type_number_t count = HOST_VM_INFO_COUNT;
  const kern_return_t status =
      ::host_statistics(port, HOST_VM_INFO, reinterpret_cast<host_info_t>(&stats), &count);
  if (status != KERN_SUCCESS) return Failure<VmPageCounts>(status);
  return Value(VmPageCounts{stats.free_count, stats.inactive_count, stats.purgeable_count,
                            stats.wire_count});
}

// ---- A process -------------------------------------------------------------------

Reading<ProcessMemory> proc_pid_rusage(int pid) {
  rusage_info_v4 info = {};
  if (::proc_pid_rusage(pid, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&info)) != 0) {
    return Failure<ProcessMemory>(errno);
  }
  return Value(ProcessMemory{info.ri_resident_size, info.ri_phys_footprint});
}

// ---- Metal and the Objective-C runtime --------------------------------------------

// A device crosses the seam retained (+1 bridge) and is released with
// CFRelease.
MetalDevice metal_device_create() {
  id<MTLDevice> device = MTLCreateSystemDefaultDevice();
  return device == nil ? nullptr : static_cast<MetalDevice>((__bridge_retained void*)device);
}

void metal_device_release(MetalDevice device) { ::CFRelease(Cf(device)); }

std::uint64_t metal_recommended_working_set_bytes(MetalDevice device) {
  return [Device(device) recommendedMaxWorkingSetSize];
}

std::optional<std::string> metal_device_name(MetalDevice device) {
  NSString* name = [Device(device) name];
  if (name == nil) return std::nullopt;
  const char* utf8 = [name UTF8String];
  if (utf8 == nullptr) return std::nullopt;
  return std::string(utf8);
}

bool metal_device_supports_family(MetalDevice device, long family) {
  // Families past the SDK's last enumerator are sent as plain numbers.
  return [Device(device) supportsFamily:static_cast<MTLGPUFamily>(family)];
}

AutoreleasePool autorelease_pool_push() {
  return static_cast<AutoreleasePool>(objc_autoreleasePoolPush());
}

void autorelease_pool_pop(AutoreleasePool pool) { objc_autoreleasePoolPop(pool); }

void ns_log(const char* message) { NSLog(@"%s", message); }

// ---- IOKit registry and CoreFoundation values ---------------------------------------

IoService io_platform_expert_service_acquire() {
  // IOServiceGetMatchingService consumes the matching dictionary.
  return ToHandle(::IOServiceGetMatchingService(kIOMainPortDefault,
                                                ::IOServiceMatching("IOPlatformExpertDevice")));
}

void io_object_release(IoService service) { ::IOObjectRelease(FromHandle(service)); }

CfValue io_model_property_copy(IoService service) {
  return FromCf<CfValue>(::IORegistryEntryCreateCFProperty(FromHandle(service), CFSTR("model"),
                                                           kCFAllocatorDefault, 0));
}

CfKind cf_kind(CfValue value) {
  const CFTypeID type = ::CFGetTypeID(Cf(value));
  if (type == ::CFStringGetTypeID()) return CfKind::kString;
  if (type == ::CFDataGetTypeID()) return CfKind::kData;
  return CfKind::kOther;
}

long cf_string_length(CfValue string) {
  return ::CFStringGetLength(static_cast<CFStringRef>(Cf(string)));
}

long cf_string_max_utf8_size(long length) {
  return ::CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8);
}

bool cf_string_to_utf8(CfValue string, char* buffer, long buffer_size) {
  return ::CFStringGetCString(static_cast<CFStringRef>(Cf(string)), buffer, buffer_size,
                              kCFStringEncodingUTF8);
}

long cf_data_length(CfValue data) { return ::CFDataGetLength(static_cast<CFDataRef>(Cf(data))); }

const std::uint8_t* cf_data_bytes(CfValue data) {
  return ::CFDataGetBytePtr(static_cast<CFDataRef>(Cf(data)));
}

CfValue cf_string_create(const char* utf8) {
  return FromCf<CfValue>(
      ::CFStringCreateWithCString(kCFAllocatorDefault, utf8, kCFStringEncodingUTF8));
}

bool cf_string_equal(CfValue a, CfValue b) {
  return ::CFStringCompare(static_cast<CFStringRef>(Cf(a)), static_cast<CFStringRef>(Cf(b)), 0) ==
         kCFCompareEqualTo;
}

void cf_release(CfValue value) { ::CFRelease(Cf(value)); }

// ---- Power sources --------------------------------------------------------------------

PowerSourcesInfo power_sources_info_copy() {
  return FromCf<PowerSourcesInfo>(::IOPSCopyPowerSourcesInfo());
}

void power_sources_info_release(PowerSourcesInfo info) { ::CFRelease(Cf(info)); }

PowerSourcesList power_sources_list_copy(PowerSourcesInfo info) {
  return FromCf<PowerSourcesList>(::IOPSCopyPowerSourcesList(Cf(info)));
}

void power_sources_list_release(PowerSourcesList list) { ::CFRelease(Cf(list)); }

long power_sources_count(PowerSourcesList list) {
  return ::CFArrayGetCount(static_cast<CFArrayRef>(Cf(list)));
}

CfValue power_sources_at(PowerSourcesList list, long index) {
  return FromCf<CfValue>(::CFArrayGetValueAtIndex(static_cast<CFArrayRef>(Cf(list)), index));
}

CfValue power_source_type(PowerSourcesInfo info, CfValue source) {
  CFDictionaryRef description = ::IOPSGetPowerSourceDescription(Cf(info), Cf(source));
  if (description == nullptr) return nullptr;
  return FromCf<CfValue>(::CFDictionaryGetValue(description, CFSTR("Type")));
}

}  // namespace vemora::platform::apple
