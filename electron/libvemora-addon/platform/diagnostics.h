// How a failed measurement reports itself: one line on the standard error
// stream, written whole so that lines from several threads never interleave.
// Each OS folder names what failed in its own terms (the file or the call,
// with the OS's reason); the logic above the seam writes only its own
// failures (a range check, a PID it cannot measure).
#pragma once

#include <string_view>

namespace vemora::platform {

// Writes `line` and a newline.
void WriteLine(std::string_view line);

// "<what>: <strerror(error)>": a file or call that failed with an errno
// value, as Linux and macOS name it.
void WriteErrno(std::string_view what, int error);

// "Failed to get <what> for PID '<pid>' since <reason>": a process the logic
// above the seam will not or cannot measure.
void WritePidFailure(std::string_view what, int pid, std::string_view reason);

}  // namespace vemora::platform
