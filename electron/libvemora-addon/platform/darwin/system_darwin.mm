// Survey readings on macOS: sysctlbyname, Metal's device name and GPU
// families, the Objective-C autorelease pool, the IOKit registry and power
// sources, and CoreFoundation values. Built with ARC.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/ps/IOPowerSources.h>
#include <Metal/Metal.h>
#include <sys/sysctl.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/platform.h"

// The runtime functions that @autoreleasepool compiles to; public in libobjc
// but declared in no SDK header.
extern "C" void* objc_autoreleasePoolPush(void);
extern "C" void objc_autoreleasePoolPop(void* pool);

namespace vemora::platform {
namespace {

template <typename T>
Reading<T> SysctlValue(const char* name) {
  T value{};
  size_t length = sizeof value;
  if (::sysctlbyname(name, &value, &length, nullptr, 0) != 0) return Failure<T>(errno);
  return Value(value);
}

// A text value read into a 256-byte buffer: the bytes the kernel wrote.
Reading<std::string> SysctlText256(const char* name) {
  char buffer[256] = {};
  size_t length = sizeof buffer;
  if (::sysctlbyname(name, buffer, &length, nullptr, 0) != 0) return Failure<std::string>(errno);
  return Value(std::string(buffer, length));
}

// IOKit objects are Mach port names; they cross the platform boundary as
// pointer-sized values, 0 (IO_OBJECT_NULL) as null.
Object FromIoObject(io_object_t object) {
  return reinterpret_cast<Object>(static_cast<std::uintptr_t>(object));
}
io_object_t ToIoObject(Object object) {
  return static_cast<io_object_t>(reinterpret_cast<std::uintptr_t>(object));
}

CFTypeRef Cf(Object object) { return static_cast<CFTypeRef>(object); }

}  // namespace

// ---- Metal -----------------------------------------------------------------------

std::optional<std::string> metal_device_name(Object device) {
  NSString* name = [(__bridge id<MTLDevice>)device name];
  if (name == nil) return std::nullopt;
  const char* utf8 = [name UTF8String];
  if (utf8 == nullptr) return std::nullopt;
  return std::string(utf8);
}

bool metal_device_supports_family(Object device, long family) {
  // Families past the SDK's last enumerator are sent as plain numbers.
  return [(__bridge id<MTLDevice>)device supportsFamily:static_cast<MTLGPUFamily>(family)];
}

Object autorelease_pool_push() { return objc_autoreleasePoolPush(); }

void autorelease_pool_pop(Object pool) { objc_autoreleasePoolPop(const_cast<void*>(pool)); }

// ---- CPU and OS -------------------------------------------------------------------

Reading<std::string> cpu_brand_string() { return SysctlText256("machdep.cpu.brand_string"); }

Reading<std::int32_t> cpu_type() { return SysctlValue<std::int32_t>("hw.cputype"); }

Reading<std::int32_t> cpu_avx2_flag() { return SysctlValue<std::int32_t>("hw.optional.avx2_0"); }

Reading<std::int32_t> gpu_host_cpu_type() { return SysctlValue<std::int32_t>("hw.cputype"); }

Reading<std::string> os_product_version() { return SysctlText256("kern.osproductversion"); }

// ---- Model identifier ----------------------------------------------------------------

Reading<std::size_t> hw_model_size() {
  size_t length = 0;
  if (::sysctlbyname("hw.model", nullptr, &length, nullptr, 0) != 0) {
    return Failure<std::size_t>(errno);
  }
  return Value<std::size_t>(length);
}

Reading<std::size_t> hw_model_read(char* buffer, std::size_t size) {
  size_t length = size;
  if (::sysctlbyname("hw.model", buffer, &length, nullptr, 0) != 0) {
    return Failure<std::size_t>(errno);
  }
  return Value<std::size_t>(length);
}

Object io_platform_expert_service_acquire() {
  // IOServiceGetMatchingService consumes the matching dictionary.
  return FromIoObject(::IOServiceGetMatchingService(kIOMainPortDefault,
                                                    ::IOServiceMatching("IOPlatformExpertDevice")));
}

void io_object_release(Object service) { ::IOObjectRelease(ToIoObject(service)); }

Object io_model_property_copy(Object service) {
  return ::IORegistryEntryCreateCFProperty(ToIoObject(service), CFSTR("model"), kCFAllocatorDefault,
                                           0);
}

// ---- CoreFoundation values -----------------------------------------------------------

CfKind cf_kind(Object value) {
  const CFTypeID type = ::CFGetTypeID(Cf(value));
  if (type == ::CFStringGetTypeID()) return CfKind::kString;
  if (type == ::CFDataGetTypeID()) return CfKind::kData;
  return CfKind::kOther;
}

long cf_string_length(Object string) {
  return ::CFStringGetLength(static_cast<CFStringRef>(string));
}

long cf_string_max_utf8_size(long length) {
  return ::CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8);
}

bool cf_string_to_utf8(Object string, char* buffer, long buffer_size) {
  return ::CFStringGetCString(static_cast<CFStringRef>(string), buffer, buffer_size,
                              kCFStringEncodingUTF8);
}

long cf_data_length(Object data) { return ::CFDataGetLength(static_cast<CFDataRef>(data)); }

const std::uint8_t* cf_data_bytes(Object data) {
  return ::CFDataGetBytePtr(static_cast<CFDataRef>(data));
}

Object cf_string_create(const char* utf8) {
  return ::CFStringCreateWithCString(kCFAllocatorDefault, utf8, kCFStringEncodingUTF8);
}

bool cf_string_equal(Object a, Object b) {
  return ::CFStringCompare(static_cast<CFStringRef>(a), static_cast<CFStringRef>(b), 0) ==
         kCFCompareEqualTo;
}

void cf_release(Object value) { ::CFRelease(Cf(value)); }

// ---- Power sources -------------------------------------------------------------------

Object power_sources_info_copy() { return ::IOPSCopyPowerSourcesInfo(); }

Object power_sources_list_copy(Object info) { return ::IOPSCopyPowerSourcesList(Cf(info)); }

long power_sources_count(Object list) { return ::CFArrayGetCount(static_cast<CFArrayRef>(list)); }

Object power_sources_at(Object list, long index) {
  return ::CFArrayGetValueAtIndex(static_cast<CFArrayRef>(list), index);
}

Object power_source_description(Object info, Object source) {
  return ::IOPSGetPowerSourceDescription(Cf(info), Cf(source));
}

Object power_source_type(Object description) {
  return ::CFDictionaryGetValue(static_cast<CFDictionaryRef>(description), CFSTR("Type"));
}

}  // namespace vemora::platform
