// The state of power and network, as the system's services report it over D-Bus.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

struct sd_bus;

namespace keldane {

/// The state of power and network. A value that no service reports counts as normal.
struct PowerAndNetwork {
  std::optional<std::uint32_t> batteryPercent;  ///< absent: not on battery, or the charge is unknown
  bool metered = false;
  bool powerSaver = false;
  bool operator==(const PowerAndNetwork&) const = default;
};

/// The system bus cannot be reached or has gone; `what` is a sentence for people.
class NoSystemBus : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A connection to the system bus. It asks those of UPower, NetworkManager and power-profiles-daemon that
/// run; none of them is started for it. Used on one thread.
class SystemBus {
 public:
  /// Throws NoSystemBus.
  SystemBus();

  /// Asks all of them. Throws NoSystemBus.
  PowerAndNetwork read();
  /// Waits until a service reports a change, appears or disappears, a signal interrupts, or the time is over.
  /// While it waits, the thread blocks only the signals of `blocked`. Returns true when there is something to
  /// be read. Throws NoSystemBus.
  bool waitForNews(std::chrono::milliseconds time, const sigset_t& blocked);

 private:
  struct Closer {
    void operator()(sd_bus* bus) const;
  };

  void follow();

  std::unique_ptr<sd_bus, Closer> bus_;
  bool news_ = false;
};

}  // namespace keldane
