// Readers of Linux's /proc and /sys files under a root directory: "" for the
// running machine, a fixture tree in tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/platform.h"

namespace vemora::platform::linux_files {

// Reads a small file whole into buffer. Returns 0 and its length, or the
// errno of the failed step (EFBIG when it does not fit the buffer).
int ReadSmallFile(const char* root, const char* path, char* buffer, std::size_t capacity,
                  std::size_t* length);

// The /proc/meminfo figures the add-on uses, in bytes; a key that is missing
// or malformed stays unset.
struct Meminfo {
  std::optional<std::uint64_t> total_bytes;
  std::optional<std::uint64_t> free_bytes;
  std::optional<std::uint64_t> available_bytes;
  std::optional<std::uint64_t> unevictable_bytes;
  std::optional<std::uint64_t> swap_total_bytes;
  std::optional<std::uint64_t> swap_free_bytes;
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

}  // namespace vemora::platform::linux_files
