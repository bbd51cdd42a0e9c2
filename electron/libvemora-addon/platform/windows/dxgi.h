// DXGI's calls, as the GPU facts use them, behind a seam private to
// platform/windows: dxgi_calls.cc makes the real COM calls, and the tests link
// a fake that scripts the adapters and checks that every object is released.
// Objects are typed handles; null means "none". Whoever gets one from a
// function named *_create or *_at releases it with the matching *_release.
// Errors are HRESULTs, or GetLastError codes where a step says so.
#pragma once

#include <array>
#include <cstdint>

#include "platform/platform.h"
#include "platform/scoped.h"

namespace vemora::platform::dxgi {

using Factory = struct FactoryObject*;  // an IDXGIFactory1
using Adapter = struct AdapterObject*;  // an IDXGIAdapter1

// DXGI_ERROR_NOT_FOUND: EnumAdapters1 past the last adapter.
constexpr std::int32_t kNotFound = static_cast<std::int32_t>(0x887A0002u);
// DXGI_ADAPTER_FLAG_SOFTWARE: the Basic Render Driver.
constexpr std::uint32_t kSoftwareAdapter = 2;

// dxgi.dll is loaded from System32 once per process, on first use, and its
// CreateDXGIFactory1 looked up; then the factory is made.
struct FactoryCreation {
  enum class Step { kDone, kLoadLibrary, kGetProcAddress, kCreateFactory };
  Factory factory = nullptr;
  Step failed = Step::kDone;
  std::int32_t error = 0;  // GetLastError's code for the first two steps
};
FactoryCreation factory_create();
void factory_release(Factory factory);

// IDXGIFactory1::EnumAdapters1(index).
Reading<Adapter> adapter_at(Factory factory, std::uint32_t index);
void adapter_release(Adapter adapter);

// IDXGIAdapter1::GetDesc1, DXGI_ADAPTER_DESC1's fields.
struct AdapterDesc {
  std::array<char16_t, 128> description{};  // NUL-padded
  std::uint32_t vendor_id = 0;
  std::uint32_t device_id = 0;
  std::uint32_t subsys_id = 0;
  std::uint64_t dedicated_video_bytes = 0;
  std::uint64_t dedicated_system_bytes = 0;
  std::uint64_t shared_system_bytes = 0;
  std::uint32_t luid_low = 0;
  std::int32_t luid_high = 0;
  std::uint32_t flags = 0;
};
Reading<AdapterDesc> adapter_desc(Adapter adapter);

using platform::Scoped;

}  // namespace vemora::platform::dxgi
