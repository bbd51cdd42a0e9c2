// A process's CPU times on Windows: OpenProcess, GetProcessTimes,
// GetExitCodeProcess, GetSystemTimeAsFileTime and FormatMessageA; under Wine,
// NtQuerySystemInformation (SystemProcessInformation) from ntdll.dll.
#include <windows.h>
// winternl.h uses the types windows.h declares.
#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/diagnostics.h"
#include "platform/platform.h"

namespace vemora::platform {
namespace {

// "call(pid): <the system's message> (error N)", one line.
void SayFailed(const char* call, int pid, DWORD error) {
  char reason[256] = "";
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, error, 0, reason, sizeof reason, nullptr);
  // The system's messages end in ".\r\n" or ". \r\n".
  std::size_t end = length < sizeof reason ? length : sizeof reason - 1;
  while (end > 0 && std::strchr("\r\n ", reason[end - 1]) != nullptr) --end;
  reason[end] = '\0';
  char line[400];
  std::snprintf(line, sizeof line, "%s(%d): %s (error %lu)", call, pid,
                reason[0] ? reason : "unknown error", static_cast<unsigned long>(error));
  WriteLine(line);
}

// FILETIME counts 100 ns: since 1601 for a moment (which fits 64 bits of
// nanoseconds until 2185), from zero for a duration.
std::uint64_t Ns(const FILETIME& time) {
  return ((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) * 100;
}

class ProcessHandle {
 public:
  explicit ProcessHandle(HANDLE handle) : handle_(handle) {}
  ~ProcessHandle() {
    if (handle_ != nullptr) CloseHandle(handle_);
  }
  ProcessHandle(const ProcessHandle&) = delete;
  ProcessHandle& operator=(const ProcessHandle&) = delete;
  HANDLE get() const { return handle_; }

 private:
  HANDLE handle_;
};

// Wine's GetProcessTimes does not report another process's user and kernel
// times (Wine 8 answers about 10 ms for a process that spun for a second);
// its process list carries the times it keeps for each. Wine's ntdll exports
// wine_get_version.
bool UnderWine() {
  static const bool wine =
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
  return wine;
}

// The start of SYSTEM_PROCESS_INFORMATION as Windows lays it out: mingw's
// winternl.h names the times, MSVC's hides them in Reserved1 (MSDN,
// NtQuerySystemInformation).
struct ListedProcess {
  ULONG next_entry_offset;
  ULONG number_of_threads;
  LARGE_INTEGER reserved[3];
  LARGE_INTEGER create_time, user_time, kernel_time;
  UNICODE_STRING image_name;
  LONG base_priority;
  HANDLE unique_process_id;
};
static_assert(offsetof(ListedProcess, unique_process_id) ==
              offsetof(SYSTEM_PROCESS_INFORMATION, UniqueProcessId));

// The list's durations count 100 ns too.
std::uint64_t Ns(const LARGE_INTEGER& duration) {
  return static_cast<std::uint64_t>(duration.QuadPart) * 100;
}

// pid's user and kernel times from the list of every process; 0, or the
// failure's code after one line naming the call.
int ListedTimes(int pid, ProcessCpuTimes& times) {
  using Query = LONG(WINAPI*)(SYSTEM_INFORMATION_CLASS, void*, ULONG, ULONG*);
  // Looked up rather than linked, so that a build needs no ntdll.lib.
  static const auto query = reinterpret_cast<Query>(reinterpret_cast<void (*)()>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  const char* const call = "NtQuerySystemInformation(SystemProcessInformation)";
  char line[160];
  if (query == nullptr) {
    std::snprintf(line, sizeof line, "%s: ntdll.dll does not export it", call);
    WriteLine(line);
    return ERROR_PROC_NOT_FOUND;
  }
  // 8-byte elements keep the entries' 64-bit fields aligned. The list may
  // grow between the call that sizes it and the next, hence a margin and
  // a few tries (STATUS_INFO_LENGTH_MISMATCH).
  constexpr LONG kInfoLengthMismatch = static_cast<LONG>(0xC0000004);
  std::vector<std::uint64_t> buffer(8192);
  ULONG listed = 0;
  LONG status = kInfoLengthMismatch;
  for (int tries = 0; tries < 4 && status == kInfoLengthMismatch; ++tries) {
    status = query(SystemProcessInformation, buffer.data(),
                   static_cast<ULONG>(buffer.size() * sizeof buffer[0]), &listed);
    if (status == kInfoLengthMismatch) buffer.resize(listed / sizeof buffer[0] + buffer.size());
  }
  if (status < 0) {
    std::snprintf(line, sizeof line, "%s: status 0x%08lX", call,
                  static_cast<unsigned long>(status));
    WriteLine(line);
    return status;
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(buffer.data());
  const std::size_t size = std::min<std::size_t>(listed, buffer.size() * sizeof buffer[0]);
  for (std::size_t offset = 0; offset + sizeof(ListedProcess) <= size;) {
    const auto& entry = *reinterpret_cast<const ListedProcess*>(bytes + offset);
    if (reinterpret_cast<std::uintptr_t>(entry.unique_process_id) ==
        static_cast<std::uintptr_t>(pid)) {
      times.user_ns = Ns(entry.user_time);
      times.system_ns = Ns(entry.kernel_time);
      return 0;
    }
    if (entry.next_entry_offset == 0) break;
    offset += entry.next_entry_offset;
  }
  std::snprintf(line, sizeof line, "%s: PID %d is not in its list", call, pid);
  WriteLine(line);
  return ERROR_NOT_FOUND;
}

}  // namespace

Reading<ProcessCpuTimes> process_cpu_times(int pid) {
  // The limited right is granted for processes of other users and for
  // protected ones too, where PROCESS_QUERY_INFORMATION is not (MSDN,
  // "Process Security and Access Rights").
  const ProcessHandle process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid)));
  if (process.get() == nullptr) {
    const DWORD error = GetLastError();
    SayFailed("OpenProcess", pid, error);
    return Failure<ProcessCpuTimes>(static_cast<int>(error));
  }
  FILETIME creation{}, exit{}, kernel{}, user{};
  if (!GetProcessTimes(process.get(), &creation, &exit, &kernel, &user)) {
    const DWORD error = GetLastError();
    SayFailed("GetProcessTimes", pid, error);
    return Failure<ProcessCpuTimes>(static_cast<int>(error));
  }
  // A process that has exited stays open while any handle to it does.
  // STILL_ACTIVE is also a code a process could exit with; MSDN's
  // GetExitCodeProcess warns of that, and no other call with the limited
  // right tells the two apart.
  DWORD exit_code = 0;
  if (!GetExitCodeProcess(process.get(), &exit_code)) {
    const DWORD error = GetLastError();
    SayFailed("GetExitCodeProcess", pid, error);
    return Failure<ProcessCpuTimes>(static_cast<int>(error));
  }
  if (exit_code != STILL_ACTIVE) {
    char line[128];
    std::snprintf(line, sizeof line,
                  "GetExitCodeProcess(%d): the process has ended (exit code %lu)", pid,
                  static_cast<unsigned long>(exit_code));
    WriteLine(line);
    return Failure<ProcessCpuTimes>(ERROR_PROCESS_ABORTED);
  }
  ProcessCpuTimes times{Ns(user), Ns(kernel), Ns(creation), 0};
  // Listed while the handle is open, so that the PID is still this process's.
  if (UnderWine() && static_cast<DWORD>(pid) != GetCurrentProcessId()) {
    if (const int error = ListedTimes(pid, times)) return Failure<ProcessCpuTimes>(error);
  }
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  times.read_at_ns = Ns(now);
  return Value(times);
}

}  // namespace vemora::platform
