// The daemon as a program of the user's session, where there is no systemd.
#pragma once

#include <filesystem>

#include "clients/ctl/service/ServiceManager.h"
#include "platform/files/Descriptor.h"

namespace keldane {

/// The lock of the process that keeps the daemon running, by which it is found.
class SupervisorLock {
 public:
  /// Throws CommandFailure when there is no safe folder for it.
  SupervisorLock();

  /// Takes it for this process, until this object goes. False when another has it.
  bool take();
  /// The other process that has it; 0 for none.
  int holder() const;

 private:
  std::filesystem::path path_;
  Descriptor file_;
};

/// What `keldanectl service supervise` writes.
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
