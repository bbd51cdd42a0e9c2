// The cheapest calls a class like VemoraCore can offer: static methods of a
// Napi::ObjectWrap class that do no work. Their cost is what entering native
// code and handing a value back costs, the floor under every method of the
// add-on. Built only for the benchmark, never shipped.
#include <napi.h>

namespace {

class NoopCore : public Napi::ObjectWrap<NoopCore> {
 public:
  static Napi::Object Init(Napi::Env env, Napi::Object exports) {
    exports.Set("NoopCore", DefineClass(env, "NoopCore",
                                        {
                                            StaticMethod("noop", &NoopCore::Noop),
                                            StaticMethod("object5", &NoopCore::Object5),
                                            StaticMethod("throwError", &NoopCore::ThrowError),
                                        }));
    return exports;
  }
  explicit NoopCore(const Napi::CallbackInfo& info) : Napi::ObjectWrap<NoopCore>(info) {}

 private:
  // A byte count as large as a machine's RAM, which V8 cannot keep as a small
  // integer: the same number the memory methods create.
  static Napi::Value Noop(const Napi::CallbackInfo& info) {
    return Napi::Number::New(info.Env(), 25.0e9);
  }

  // A fresh object with five keys, as the methods that return records make.
  static Napi::Value Object5(const Napi::CallbackInfo& info) {
    const Napi::Env env = info.Env();
    Napi::Object object = Napi::Object::New(env);
    object.Set("a", Napi::Number::New(env, 1.0));
    object.Set("b", Napi::Number::New(env, 2.0));
    object.Set("c", Napi::Number::New(env, 3.0));
    object.Set("d", Napi::String::New(env, "d"));
    object.Set("e", Napi::String::New(env, "e"));
    return object;
  }

  // A method that answers with an error, as getCpuUsage does on macOS.
  static Napi::Value ThrowError(const Napi::CallbackInfo& info) {
    throw Napi::Error::New(info.Env(), "not measured here");
  }
};

Napi::Object Init(Napi::Env env, Napi::Object exports) { return NoopCore::Init(env, exports); }

}  // namespace

NODE_API_MODULE(vemora_bench_noop, Init)
