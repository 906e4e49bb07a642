// Power and network as the system's services tell them over D-Bus.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

struct sd_bus;

namespace keldane {

/// How power and network stand. What a service does not tell, or none tells, is as if all were well.
struct PowerAndNetwork {
  std::optional<std::uint32_t> batteryPercent;  ///< absent: not on battery, or nobody knows how full it is
  bool metered = false;
  bool powerSaver = false;
  bool operator==(const PowerAndNetwork&) const = default;
};

/// The system bus cannot be reached or has gone; `what` is a sentence for people.
class NoSystemBus : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A connection to the system bus, which asks UPower, NetworkManager and power-profiles-daemon, those that
/// run. None of them is started for it. One thread.
class SystemBus {
 public:
  /// Throws NoSystemBus.
  SystemBus();

  /// Asks all of them. Throws NoSystemBus.
  PowerAndNetwork read();
  /// Waits until a service tells of something new, comes or goes, a signal interrupts, or the time is over.
  /// True when there is something to be read. Throws NoSystemBus.
  bool waitForNews(std::chrono::milliseconds time);

 private:
  struct Closer {
    void operator()(sd_bus* bus) const;
  };

  void follow();

  std::unique_ptr<sd_bus, Closer> bus_;
  bool news_ = false;
};

}  // namespace keldane
