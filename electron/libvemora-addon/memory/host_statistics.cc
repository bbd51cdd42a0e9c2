#include "memory/host_statistics.h"

#include "memory/diagnostics.h"
#include "platform/platform.h"

namespace vemora_utils {
namespace {

namespace platform = vemora::platform;

class HostPort {
 public:
  HostPort() : port_(platform::host_port_acquire()) {}
  ~HostPort() { release(); }
  HostPort(const HostPort&) = delete;
  HostPort& operator=(const HostPort&) = delete;

  platform::HostPort get() const { return port_; }

  // Gives the port back as soon as the last statistic is read.
  void release() {
    if (held_) {
      held_ = false;
      platform::host_port_release(port_);
    }
  }

 private:
  platform::HostPort port_;
  bool held_ = true;
};

}  // namespace

bool read_host_vm_statistics(VmStatistics flavour, std::uint64_t* page_size_bytes,
                             platform::VmPageCounts* counts) {
  HostPort port;
  const auto page_size = platform::host_page_size_bytes(port.get());
  if (!page_size.ok()) {
    write_raw("Failed to get host page size.\n");
    return false;
  }
  const bool wide = flavour == VmStatistics::k64Bit;
  const auto stats = wide ? platform::host_vm_statistics64(port.get())
                          : platform::host_vm_statistics32(port.get());
  port.release();
  if (!stats.ok()) {
    write_raw(wide ? "Failed to get 64-bit VM statistics.\n" : "Failed to get VM statistics.\n");
    return false;
  }
  *page_size_bytes = page_size.value;
  *counts = stats.value;
  return true;
}

}  // namespace vemora_utils
