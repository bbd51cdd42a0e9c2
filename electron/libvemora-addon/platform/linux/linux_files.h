// Readers of Linux's /proc and /sys files under a root directory: "" for the
// running machine, a fixture tree in tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

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
// Returns 0, or the errno of the failed step (EFBIG when the keys are not all
// found within 16 KiB).
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

// Resident size (VmRSS) and footprint (RssAnon + VmSwap) from
// /proc/<pid>/status.
Reading<ProcessMemory> ReadProcessMemory(const char* root, int pid);

// Page counters in the kernel's terms of free, reclaimable and locked memory.
Reading<VmPageCounts> PageCountsFromMeminfo(const Meminfo& meminfo, std::uint64_t page_size_bytes);

}  // namespace vemora::platform::linux_files
