// The add-on imports Node-API from "node.exe" through a delay-load import
// library (made from node-api-headers' node_api.def), resolved at the first
// Node-API call. This hook (delayimp.h) answers "node.exe" with the program
// that loaded the add-on, so it also loads in an executable with another name,
// such as an Electron app's. MinGW's runtime defines __pfnDliNotifyHook2;
// MSVC builds get cmake-js's own hook instead.
#include <windows.h>
// delayimp.h uses the types windows.h declares.
#include <delayimp.h>

namespace {

FARPROC WINAPI HostForNodeExe(unsigned event, PDelayLoadInfo info) {
  if (event != dliNotePreLoadLibrary || ::_stricmp(info->szDll, "node.exe") != 0) return nullptr;
  return reinterpret_cast<FARPROC>(::GetModuleHandleW(nullptr));
}

// Set when the add-on's DLL is initialised, before Node calls into it.
struct InstallHook {
  InstallHook() { __pfnDliNotifyHook2 = HostForNodeExe; }
} install_hook;

}  // namespace
