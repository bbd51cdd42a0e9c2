// Readers of Linux's /proc and /sys files under a root directory: "" for the
// running machine, a fixture tree in tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/proc_text.h"
#include "platform/platform.h"

namespace vemora::platform::linux_files {

// Reads a small file whole into buffer. Returns 0 and its length, or the
// errno of the failed step (EFBIG when it does not fit the buffer).
int ReadSmallFile(const char* root, const char* path, char* buffer, std::size_t capacity,
                  std::size_t* length);

// Reads a "Key: number" file such as /proc/meminfo until every wanted key is
// found or the file ends: the kernel writes the whole text on the first read,
// so one read usually does, without a second one that only finds the end.
// Returns 0, or the errno of the failed step.
int ReadKeyedNumbers(const char* root, const char* path, linux_text::KeyedNumber* wanted,
                     std::size_t count);

// The /proc/meminfo figures the add-on uses, in bytes; a key that is missing
// or malformed stays unset.
struct Meminfo {
  std::optional<std::uint64_t> free_bytes;
  std::optional<std::uint64_t> available_bytes;
  std::optional<std::uint64_t> unevictable_bytes;
};
Reading<Meminfo> ReadMeminfo(const char* root);
// ReadMeminfo's parse step, on the file's text.
Meminfo MeminfoFromText(std::string_view text);

// Resident size (VmRSS) and footprint (RssAnon + VmSwap) from
// /proc/<pid>/status.
Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid);
// ReadProcessMemory's parse step, on the file's text.
Reading<ProcessMemory> ProcessMemoryFromStatusText(std::string_view text);

// Page counters in the kernel's terms of free, reclaimable and locked memory.
Reading<VmPageCounts> PageCountsFromMeminfo(const Meminfo& meminfo, std::uint64_t page_size_bytes);

// The CPU's name from /proc/cpuinfo ("model name", or "Hardware"/"Model" on
// ARM boards), for machines where cpuid cannot give it.
Reading<std::string> ReadCpuinfoModelName(const char* root);

// The firmware's product name, /sys/class/dmi/id/product_name, without its
// newline; empty when the firmware left it blank.
Reading<std::string> ReadDmiProductName(const char* root);

// Whether the kernel booted from a device tree (/proc/device-tree exists).
bool HasDeviceTree(const char* root);
// /proc/device-tree/model exactly as the kernel gives it: a NUL-terminated
// string property.
Reading<std::string> ReadDeviceTreeModel(const char* root);

// The power-source "Type" of every supply under /sys/class/power_supply, in
// the order of their names; unset where the supply's type is unreadable.
Reading<std::vector<std::optional<std::string>>> ReadPowerSourceTypes(const char* root);

}  // namespace vemora::platform::linux_files
