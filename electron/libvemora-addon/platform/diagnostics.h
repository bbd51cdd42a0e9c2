// The ways a failed measurement reports itself on the standard error stream,
// kept in one place so every call site uses its fixed style.
#pragma once

namespace vemora_utils {

// A fixed text, written as is (it carries its own newline).
void write_raw(const char* text);

// perror(prefix) for the given errno value: "prefix: <reason>\n".
void write_errno(const char* prefix, int error);

}  // namespace vemora_utils
