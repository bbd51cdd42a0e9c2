// Control panel of the fake of DXGI's calls (platform/windows/dxgi.h), for the
// tests of the Windows GPU logic: the factory and the adapters are scripted,
// and every object handed out is tracked until it is released. reset()
// restores a script with no adapter at all.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/windows/dxgi.h"

namespace vemora::platform::fake_dxgi {

struct Script {
  // Where factory_create stops, and the code it reports.
  dxgi::FactoryCreation::Step fails_at = dxgi::FactoryCreation::Step::kDone;
  std::int32_t error = 0;
  // GetDesc1's answer for each adapter EnumAdapters1 lists, in order.
  std::vector<Reading<dxgi::AdapterDesc>> adapters;
  // EnumAdapters1 fails with this HRESULT at this index (none when 0).
  std::uint32_t enum_fails_at = 0;
  std::int32_t enum_error = 0;
};

Script& script();
void reset();

// Objects handed out and not yet released, by kind ("factory", "adapter"),
// and misuse seen (a release of an object not lent or already released).
std::map<std::string, int> live_objects();
const std::vector<std::string>& misuse();

}  // namespace vemora::platform::fake_dxgi
