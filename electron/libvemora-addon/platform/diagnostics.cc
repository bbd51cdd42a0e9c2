#include "platform/diagnostics.h"

#include <cerrno>
#include <cstdio>

namespace vemora_utils {

void write_raw(const char* text) {
  std::fputs(text, stderr);
  std::fflush(stderr);
}

void write_errno(const char* prefix, int error) {
  errno = error;
  std::perror(prefix);
}

}  // namespace vemora_utils
