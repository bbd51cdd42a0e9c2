// DXGI's real calls: LoadLibraryExW, GetProcAddress, CreateDXGIFactory1,
// IDXGIFactory1::EnumAdapters1, IDXGIAdapter1::GetDesc1, IUnknown::Release.
#include <dxgi.h>
#include <windows.h>

#include <cstring>
#include <utility>

#include "platform/windows/dxgi.h"

namespace vemora::platform::dxgi {
namespace {

using CreateFactory1 = HRESULT(WINAPI*)(REFIID, void**);

// dxgi.dll stays loaded once loaded: objects it made may still be alive in
// other threads when a call ends. Loaded on first use, not with the add-on,
// so that a process that never asks about GPUs never maps it.
struct Library {
  CreateFactory1 create = nullptr;
  FactoryCreation::Step failed = FactoryCreation::Step::kDone;
  std::int32_t error = 0;
};

Library LoadDxgi() {
  Library library;
  const HMODULE module = ::LoadLibraryExW(L"dxgi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr) {
    library.failed = FactoryCreation::Step::kLoadLibrary;
    library.error = static_cast<std::int32_t>(::GetLastError());
    return library;
  }
  const FARPROC proc = ::GetProcAddress(module, "CreateDXGIFactory1");
  if (proc == nullptr) {
    library.failed = FactoryCreation::Step::kGetProcAddress;
    library.error = static_cast<std::int32_t>(::GetLastError());
    return library;
  }
  // void (*)(void) converts to and from any function pointer type.
  library.create = reinterpret_cast<CreateFactory1>(reinterpret_cast<void (*)()>(proc));
  return library;
}

IDXGIFactory1* AsFactory(Factory factory) { return reinterpret_cast<IDXGIFactory1*>(factory); }
IDXGIAdapter1* AsAdapter(Adapter adapter) { return reinterpret_cast<IDXGIAdapter1*>(adapter); }

}  // namespace

FactoryCreation factory_create() {
  static const Library library = LoadDxgi();
  FactoryCreation creation;
  if (library.create == nullptr) {
    creation.failed = library.failed;
    creation.error = library.error;
    return creation;
  }
  void* factory = nullptr;
  const HRESULT result = library.create(__uuidof(IDXGIFactory1), &factory);
  if (FAILED(result) || factory == nullptr) {
    creation.failed = FactoryCreation::Step::kCreateFactory;
    creation.error = static_cast<std::int32_t>(result);
    return creation;
  }
  creation.factory = reinterpret_cast<Factory>(factory);
  return creation;
}

void factory_release(Factory factory) { AsFactory(factory)->Release(); }

Reading<Adapter> adapter_at(Factory factory, std::uint32_t index) {
  IDXGIAdapter1* adapter = nullptr;
  const HRESULT result = AsFactory(factory)->EnumAdapters1(index, &adapter);
  if (FAILED(result)) return Failure<Adapter>(static_cast<int>(result));
  return Value(reinterpret_cast<Adapter>(adapter));
}

void adapter_release(Adapter adapter) { AsAdapter(adapter)->Release(); }

Reading<AdapterDesc> adapter_desc(Adapter adapter) {
  DXGI_ADAPTER_DESC1 desc{};
  const HRESULT result = AsAdapter(adapter)->GetDesc1(&desc);
  if (FAILED(result)) return Failure<AdapterDesc>(static_cast<int>(result));
  AdapterDesc out;
  static_assert(sizeof desc.Description == sizeof out.description, "WCHAR[128] in UTF-16");
  std::memcpy(out.description.data(), desc.Description, sizeof desc.Description);
  out.vendor_id = desc.VendorId;
  out.device_id = desc.DeviceId;
  out.subsys_id = desc.SubSysId;
  out.dedicated_video_bytes = desc.DedicatedVideoMemory;
  out.dedicated_system_bytes = desc.DedicatedSystemMemory;
  out.shared_system_bytes = desc.SharedSystemMemory;
  out.luid_low = desc.AdapterLuid.LowPart;
  out.luid_high = desc.AdapterLuid.HighPart;
  out.flags = desc.Flags;
  return Value(std::move(out));
}

}  // namespace vemora::platform::dxgi
