// Shared libraries on Windows: LoadLibraryExW, GetProcAddress, FreeLibrary,
// MultiByteToWideChar.
#include <windows.h>

#include <string>

#include "platform/library.h"

namespace vemora::platform::library {

void* Open(const char* name, std::string* error) {
  const int length = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, nullptr, 0);
  std::wstring wide(length > 0 ? static_cast<std::size_t>(length) : 1, L'\0');
  HMODULE module = nullptr;
  if (length > 0 &&
      ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, name, -1, wide.data(), length) > 0) {
    // A bare name is looked up in System32 only, where drivers install their
    // libraries, never in the current or the application's directory
    // (MSDN, "Dynamic-Link Library Security"); a path is loaded as given.
    const bool bare = std::string(name).find_first_of("\\/") == std::string::npos;
    module = ::LoadLibraryExW(wide.c_str(), nullptr, bare ? LOAD_LIBRARY_SEARCH_SYSTEM32 : 0);
  }
  if (module == nullptr) {
    *error = "LoadLibrary " + std::string(name) + ": error " + std::to_string(::GetLastError());
  }
  return module;
}

void* Find(void* library, const char* symbol) {
  // void (*)(void) converts to and from any function pointer type; the caller
  // casts the address to the entry point's own type.
  return reinterpret_cast<void*>(
      reinterpret_cast<void (*)()>(::GetProcAddress(static_cast<HMODULE>(library), symbol)));
}

void Close(void* library) { ::FreeLibrary(static_cast<HMODULE>(library)); }

}  // namespace vemora::platform::library
