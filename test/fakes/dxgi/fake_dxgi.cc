// The scripted fake of DXGI's calls: answers from fake_dxgi::script() and
// tracks every object it lends until it is released.
#include "dxgi/fake_dxgi.h"

#include <memory>

namespace vemora::platform {
namespace {

struct State {
  fake_dxgi::Script script;
  std::map<const void*, std::string> live;           // object -> kind
  std::map<const void*, std::size_t> adapter_index;  // adapter -> script entry
  std::vector<std::unique_ptr<int>> storage;
  std::vector<std::string> misuse;
};

State& state() {
  static State s;
  return s;
}

template <typename Handle>
Handle Lend(const char* kind) {
  state().storage.push_back(std::make_unique<int>(0));
  const void* object = state().storage.back().get();
  state().live.emplace(object, kind);
  return reinterpret_cast<Handle>(const_cast<void*>(object));
}

void TakeBack(const void* object, const char* kind) {
  const auto it = state().live.find(object);
  if (it == state().live.end() || it->second != kind) {
    state().misuse.push_back(std::string(kind) +
                             " release of an object not lent or already released");
    return;
  }
  state().live.erase(it);
}

}  // namespace

namespace fake_dxgi {

Script& script() { return state().script; }

void reset() { state() = State{}; }

std::map<std::string, int> live_objects() {
  std::map<std::string, int> count;
  for (const auto& [object, kind] : state().live) ++count[kind];
  return count;
}

const std::vector<std::string>& misuse() { return state().misuse; }

}  // namespace fake_dxgi

namespace dxgi {

FactoryCreation factory_create() {
  FactoryCreation creation;
  const fake_dxgi::Script& script = state().script;
  if (script.fails_at != FactoryCreation::Step::kDone) {
    creation.failed = script.fails_at;
    creation.error = script.error;
    return creation;
  }
  creation.factory = Lend<Factory>("factory");
  return creation;
}

void factory_release(Factory factory) { TakeBack(factory, "factory"); }

Reading<Adapter> adapter_at(Factory factory, std::uint32_t index) {
  if (state().live.count(factory) == 0) state().misuse.push_back("EnumAdapters1 on a dead factory");
  const fake_dxgi::Script& script = state().script;
  if (script.enum_error != 0 && index == script.enum_fails_at) {
    return Failure<Adapter>(script.enum_error);
  }
  if (index >= script.adapters.size()) return Failure<Adapter>(kNotFound);
  const auto adapter = Lend<Adapter>("adapter");
  state().adapter_index[adapter] = index;
  return Value(adapter);
}

void adapter_release(Adapter adapter) { TakeBack(adapter, "adapter"); }

Reading<AdapterDesc> adapter_desc(Adapter adapter) {
  if (state().live.count(adapter) == 0) state().misuse.push_back("GetDesc1 on a dead adapter");
  return state().script.adapters.at(state().adapter_index.at(adapter));
}

}  // namespace dxgi
}  // namespace vemora::platform
