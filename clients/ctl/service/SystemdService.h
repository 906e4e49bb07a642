// The daemon as a unit of the user's systemd.
#pragma once

#include "clients/ctl/service/ServiceManager.h"

namespace keldane {

/// Uses `systemctl --user`. The package enables the unit for all users, so a single user disables it by
/// masking it.
class SystemdService final : public ServiceManager {
 public:
  const char* name() const override { return "systemd"; }
  ServiceStanding standing() const override;
  void start() override;
  void stop() override;
  void enable() override;
  void disable() override;
  [[noreturn]] void showLog(unsigned lines, bool follow) override;
};

}  // namespace keldane
