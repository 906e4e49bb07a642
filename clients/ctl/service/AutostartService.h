// The daemon as a program of the user's session, for systems without systemd.
#pragma once

#include <filesystem>

#include "clients/ctl/service/ServiceManager.h"
#include "platform/files/Descriptor.h"

namespace keldane {

/// The lock of the process that keeps the daemon running; other processes find that process by it.
class SupervisorLock {
 public:
  /// Throws CommandFailure when there is no safe folder for the lock.
  SupervisorLock();

  /// Takes the lock for this process until this object is destroyed. Returns false when another process holds
  /// it.
  bool take();
  /// The other process that holds the lock; 0 when none does.
  int holder() const;

 private:
  std::filesystem::path path_;
  Descriptor file_;
};

/// The log file that `keldanectl service supervise` writes.
std::filesystem::path serviceLogFile();

class AutostartService final : public ServiceManager {
 public:
  const char* name() const override { return "autostart"; }
  ServiceStanding standing() const override;
  void start() override;
  void stop() override;
  void enable() override;
  void disable() override;
  [[noreturn]] void showLog(unsigned lines, bool follow) override;
};

}  // namespace keldane
