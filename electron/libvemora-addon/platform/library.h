// Loading a shared library at run time and finding its entry points: the
// one thing the readers of vendor libraries (NVML) ask of the OS. Each OS
// folder implements it (dlopen on Linux, LoadLibrary on Windows).
#pragma once

#include <string>

namespace vemora::platform::library {

// The library as the OS's loader finds it by name (or path), its symbols kept
// private to it; nullptr, with the loader's reason in *error, when it cannot
// be loaded.
void* Open(const char* name, std::string* error);
// The address of an exported symbol; nullptr when the library has none.
void* Find(void* library, const char* symbol);
void Close(void* library);

}  // namespace vemora::platform::library
