// Holds the host port for one query and gives it back on every path.
#pragma once

#include "platform/platform.h"

namespace vemora_utils {

class HostPort {
 public:
  HostPort() : port_(vemora::platform::host_port_acquire()) {}
  ~HostPort() { release(); }
  HostPort(const HostPort&) = delete;
  HostPort& operator=(const HostPort&) = delete;

  vemora::platform::HostPort get() const { return port_; }

  // Gives the port back early, once the last statistic is read.
  void release() {
    if (held_) {
      held_ = false;
      vemora::platform::host_port_release(port_);
    }
  }

 private:
  vemora::platform::HostPort port_;
  bool held_ = true;
};

}  // namespace vemora_utils
