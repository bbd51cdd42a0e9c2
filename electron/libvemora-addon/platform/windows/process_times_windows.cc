// A process's CPU times on Windows: OpenProcess, GetProcessTimes,
// GetExitCodeProcess, GetSystemTimeAsFileTime and FormatMessageA.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

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
  std::snprintf(line, sizeof line, "%s(%d): %s (error %lu)\n", call, pid,
                reason[0] ? reason : "unknown error", static_cast<unsigned long>(error));
  vemora_utils::write_raw(line);
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
                  "GetExitCodeProcess(%d): the process has ended (exit code %lu)\n", pid,
                  static_cast<unsigned long>(exit_code));
    vemora_utils::write_raw(line);
    return Failure<ProcessCpuTimes>(ERROR_PROCESS_ABORTED);
  }
  FILETIME now{};
  GetSystemTimeAsFileTime(&now);
  return Value(ProcessCpuTimes{Ns(user), Ns(kernel), Ns(creation), Ns(now)});
}

}  // namespace vemora::platform
