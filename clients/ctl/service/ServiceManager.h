// Who starts the user's daemon: systemd, or an entry of the desktop's autostart.
#pragma once

#include <memory>
#include <string>

namespace keldane {

struct ServiceStanding {
  bool running = false;
  bool starting = false;  ///< it is between two starts
  bool enabled = false;   ///< it is started when the user logs in
  int process = 0;        ///< of the daemon, or of what starts it again; 0 when none is known
};

/// The daemon of the user who asks. Every operation that fails throws CommandFailure. One thread.
class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  ServiceManager() = default;
  ServiceManager(const ServiceManager&) = delete;
  ServiceManager& operator=(const ServiceManager&) = delete;

  /// "systemd" or "autostart".
  virtual const char* name() const = 0;
  virtual ServiceStanding standing() const = 0;
  /// Starts it now, or does nothing when it runs.
  virtual void start() = 0;
  /// Ends it now, and waits for that.
  virtual void stop() = 0;
  /// From the next login on; what runs now goes on.
  virtual void enable() = 0;
  virtual void disable() = 0;
  /// Prints the log's last lines, and then, if `follow`, each new one. Does not return.
  [[noreturn]] virtual void showLog(unsigned lines, bool follow) = 0;
};

/// Whether the user's services are systemd's to start: its user instance answers and knows the daemon's unit.
bool isUnderSystemd();
std::unique_ptr<ServiceManager> serviceManager();

}  // namespace keldane
