// The memory facts on Windows: GlobalMemoryStatusEx, and OpenProcess with
// GetProcessMemoryInfo (PROCESS_MEMORY_COUNTERS_EX) for a process.
#include <windows.h>
// psapi.h uses the types windows.h declares.
#include <psapi.h>

#include "platform/diagnostics.h"
#include "platform/platform.h"
#include "platform/windows/windows_text.h"

namespace vemora::platform {
namespace {

Reading<MEMORYSTATUSEX> MemoryStatus() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  if (::GlobalMemoryStatusEx(&status)) return Value(status);
  const DWORD error = ::GetLastError();
  WriteLine(windows_text::ErrorLine("GlobalMemoryStatusEx", error));
  return Failure<MEMORYSTATUSEX>(static_cast<int>(error));
}

class ScopedHandle {
 public:
  explicit ScopedHandle(HANDLE handle) : handle_(handle) {}
  ~ScopedHandle() {
    if (handle_ != nullptr) ::CloseHandle(handle_);
  }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

Reading<ProcessMemory> Failed(const char* call) {
  const DWORD error = ::GetLastError();
  WriteLine(windows_text::ErrorLine(call, error));
  return Failure<ProcessMemory>(static_cast<int>(error));
}

}  // namespace

Reading<std::uint64_t> physical_memory_bytes() {
  const auto status = MemoryStatus();
  if (!status.ok()) return Failure<std::uint64_t>(status.error);
  return Value<std::uint64_t>(status.value.ullTotalPhys);
}

Reading<std::uint64_t> available_memory_bytes() {
  const auto status = MemoryStatus();
  if (!status.ok()) return Failure<std::uint64_t>(status.error);
  return Value<std::uint64_t>(status.value.ullAvailPhys);
}

Reading<std::uint64_t> allocatable_memory_bytes() { return available_memory_bytes(); }

Reading<SwapUsage> swap_usage() {
  const auto status = MemoryStatus();
  if (!status.ok()) return Failure<SwapUsage>(status.error);
  const MEMORYSTATUSEX& s = status.value;
  return Value(windows_text::SwapBeyondPhysical(s.ullTotalPhys, s.ullAvailPhys, s.ullTotalPageFile,
                                                s.ullAvailPageFile));
}

Reading<ProcessMemory> process_memory(int pid) {
  // The limited right is what Windows grants for other users' processes too
  // (MSDN, Process Security and Access Rights).
  const ScopedHandle process(
      ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid)));
  if (process.get() == nullptr) return Failed("OpenProcess");
  PROCESS_MEMORY_COUNTERS_EX counters{};
  counters.cb = sizeof counters;
  if (!::GetProcessMemoryInfo(process.get(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                              sizeof counters)) {
    return Failed("GetProcessMemoryInfo");
  }
  return Value(ProcessMemory{counters.WorkingSetSize, counters.PrivateUsage});
}

}  // namespace vemora::platform
