// Memory readings on macOS: sysctl, Mach host statistics, proc_pid_rusage,
// and Metal's recommended working set. Built with ARC.
#include <CoreFoundation/CoreFoundation.h>
#include <Foundation/Foundation.h>
#include <Metal/Metal.h>
#include <libproc.h>
#include <mach/mach.h>
#include <sys/resource.h>
#include <sys/sysctl.h>

#include <cerrno>

#include "platform/platform.h"

namespace vemora::platform {

Reading<std::uint64_t> physical_memory_bytes() {
  int name[] = {CTL_HW, HW_MEMSIZE};
  std::uint64_t bytes = 0;
  size_t length = sizeof bytes;
  if (::sysctl(name, 2, &bytes, &length, nullptr, 0) == -1) return Failure<std::uint64_t>(errno);
  return Value(bytes);
}

Reading<std::uint64_t> global_user_wire_limit_bytes() {
  std::uint64_t bytes = 0;
  size_t length = sizeof bytes;
  if (::sysctlbyname("vm.global_user_wire_limit", &bytes, &length, nullptr, 0) == -1) {
    return Failure<std::uint64_t>(errno);
  }
  return Value(bytes);
}

HostPort host_port_acquire() { return ::mach_host_self(); }

void host_port_release(HostPort port) { ::mach_port_deallocate(::mach_task_self(), port); }

Reading<std::uint64_t> host_page_size_bytes(HostPort port) {
  vm_size_t page_size = 0;
  const kern_return_t status = ::host_page_size(port, &page_size);
  if (status != KERN_SUCCESS) return Failure<std::uint64_t>(status);
  return Value(static_cast<std::uint64_t>(page_size));
}

Reading<VmPageCounts> host_vm_statistics64(HostPort port) {
  vm_statistics64_data_t stats = {};
  mach_msg_type_number_t count = HOST_VM_INFO64_COUNT;
  const kern_return_t status =
      ::host_statistics64(port, HOST_VM_INFO64, reinterpret_cast<host_info64_t>(&stats), &count);
  if (status != KERN_SUCCESS) return Failure<VmPageCounts>(status);
  return Value(VmPageCounts{stats.free_count, stats.inactive_count, stats.purgeable_count,
                            stats.wire_count});
}

Reading<VmPageCounts> host_vm_statistics32(HostPort port) {
  vm_statistics_data_t stats = {};
  mach_msg_type_number_t count = HOST_VM_INFO_COUNT;
  const kern_return_t status =
      ::host_statistics(port, HOST_VM_INFO, reinterpret_cast<host_info_t>(&stats), &count);
  if (status != KERN_SUCCESS) return Failure<VmPageCounts>(status);
  return Value(VmPageCounts{stats.free_count, stats.inactive_count, stats.purgeable_count,
                            stats.wire_count});
}

Reading<SwapUsage> swap_usage() {
  int name[] = {CTL_VM, VM_SWAPUSAGE};
  xsw_usage usage = {};
  size_t length = sizeof usage;
  if (::sysctl(name, 2, &usage, &length, nullptr, 0) != 0) return Failure<SwapUsage>(errno);
  return Value(SwapUsage{usage.xsu_total, usage.xsu_used});
}

Reading<ProcessMemory> process_memory(int pid) {
  rusage_info_v4 info = {};
  if (::proc_pid_rusage(pid, RUSAGE_INFO_V4, reinterpret_cast<rusage_info_t*>(&info)) != 0) {
    return Failure<ProcessMemory>(errno);
  }
  return Value(ProcessMemory{info.ri_resident_size, info.ri_phys_footprint});
}

// Metal objects cross the platform boundary as retained CF-style pointers:
// created with a +1 bridge, released with CFRelease.
Object metal_device_create() {
  id<MTLDevice> device = MTLCreateSystemDefaultDevice();
  return device == nil ? nullptr : (__bridge_retained const void*)device;
}

void metal_device_release(Object device) { ::CFRelease(device); }

std::uint64_t metal_recommended_working_set_bytes(Object device) {
  return [(__bridge id<MTLDevice>)device recommendedMaxWorkingSetSize];
}

void system_log(const char* message) { NSLog(@"%s", message); }

}  // namespace vemora::platform
