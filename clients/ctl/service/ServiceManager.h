// Starts the user's daemon, through systemd or through an entry of the desktop's autostart.
#pragma once

#include <memory>
#include <string>

namespace keldane {

struct ServiceStanding {
  bool running = false;
  bool starting = false;  ///< it is stopped for the pause before the next start
  bool enabled = false;   ///< it is started when the user logs in
  int process = 0;        ///< the daemon, or the program that restarts it; 0 when none is known
};

/// The daemon of the current user. Every operation that fails throws CommandFailure. Used on one thread.
class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  ServiceManager() = default;
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// "systemd" or "autostart".
  virtual const char* name() const = 0;
  virtual ServiceStanding standing() const = 0;
  /// Starts the daemon now; does nothing when it runs.
  virtual void start() = 0;
  /// Stops the daemon now, and waits for its end.
  virtual void stop() = 0;
  /// Changes what happens at the next login; a running daemon goes on.
  virtual void enable() = 0;
  virtual void disable() = 0;
  /// Prints the last lines of the log, and then, if `follow`, each new line. Does not return.
  [[noreturn]] virtual void showLog(unsigned lines, bool follow) = 0;
};

/// Whether systemd starts the user's services: its user instance answers and knows the daemon's unit.
bool isUnderSystemd();
std::unique_ptr<ServiceManager> serviceManager();

}  // namespace keldane
