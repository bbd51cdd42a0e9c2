#include "platform/diagnostics.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace vemora::platform {

void WriteLine(std::string_view line) {
  std::string text(line);
  text += '\n';
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

void WriteErrno(std::string_view what, int error) {
  std::string line(what);
  line += ": ";
  line += std::strerror(error);
  WriteLine(line);
}

void WritePidFailure(std::string_view what, int pid, std::string_view reason) {
  std::string line = "Failed to get ";
  line += what;
  line += " for PID '" + std::to_string(pid) + "' since ";
  line += reason;
  WriteLine(line);
}

}  // namespace vemora::platform
