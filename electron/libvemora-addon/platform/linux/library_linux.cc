// Shared libraries on Linux: dlopen(3), dlsym(3), dlclose(3).
#include <dlfcn.h>

#include "platform/library.h"

namespace vemora::platform::library {

void* Open(const char* name, std::string* error) {
  // RTLD_LOCAL: the library's symbols must not resolve anyone else's.
  void* library = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    const char* reason = ::dlerror();
    *error = reason != nullptr ? reason : "dlopen failed";
  }
  return library;
}

void* Find(void* library, const char* symbol) { return ::dlsym(library, symbol); }

void Close(void* library) { ::dlclose(library); }

}  // namespace vemora::platform::library
