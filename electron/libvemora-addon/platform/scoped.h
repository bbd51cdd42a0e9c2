// Releases an OS object when the scope that took it ends, whatever the path
// out: the private seams of each OS (Apple's calls, DXGI) lend typed handles
// that their callers give back through it.
#pragma once

namespace vemora::platform {

template <typename Handle, void (*Release)(Handle)>
class Scoped {
 public:
  explicit Scoped(Handle handle) : handle_(handle) {}
  ~Scoped() {
    if (handle_) Release(handle_);
  }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;

  Handle get() const { return handle_; }
  explicit operator bool() const { return static_cast<bool>(handle_); }

 private:
  Handle handle_;
};

}  // namespace vemora::platform
