// Releases a platform object when the scope that took it ends, whatever the
// path out.
#pragma once

#include "platform/platform.h"

namespace vemora::platform {

template <void (*Release)(Object)>
class Scoped {
 public:
  explicit Scoped(Object object) : object_(object) {}
  ~Scoped() {
    if (object_ != nullptr) Release(object_);
  }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;

  Object get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  Object object_;
};

}  // namespace vemora::platform
