// A host of a campaign: it shows menus over links with faults, and judges each by what its link can have
// told it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "hosts/core/MenuHost.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/daemon/Client.h"
#include "tests/support/process/Footprint.h"
#include "tests/tools/faults/CommandOracle.h"
#include "tests/tools/faults/MenuOracle.h"
#include "tests/tools/faults/campaign/CampaignScene.h"
#include "tests/tools/faults/campaign/ProxyProcess.h"

namespace keldane::testing {

/// What a menu came to beside the right one.
enum class Outcome : std::uint8_t { whole, fewer, none, other };
constexpr std::array<const char*, 4> kOutcomes = {"whole", "fewer", "none", "other"};

/// One host, whose plug-in knows the daemon by the proxy's socket.
class CampaignHost {
 public:
  CampaignHost(const Scene& scene, std::uint64_t seed, std::uint32_t firstCycle);

  /// What the cycle came to. Throws what is wrong with it.
  Outcome run(std::uint32_t number);

 private:
  struct Cycle {
    Titles menu;
    ConnectionReport report;
    /// The connection over which the command went, if the one before it was lost while the menu was open.
    std::optional<ConnectionReport> back;
  };

  /// A menu that stays open is there until its link, if it was lost, is back.
  Cycle cycle(const FaultPlan& plan, std::uint32_t command, bool staysOpen = false);
  void checkMenu(const FaultPlan& plan, const Cycle& faulty) const;
  void checkCommand(const FaultPlan& plan, std::uint32_t command, const Cycle& faulty);
  /// What the daemon makes of a file that was told to be backed up as soon as possible.
  Standing standing(const std::string& path);
  /// Makes of a file what it was before that.
  void takeBack(const std::string& path);
  void checkFootprint(const char* after) const;

  const std::uint64_t seed_;
  const UserPreferences user_;
  const PluginBundle bundle_;
  const Subject subject_;
  ProxyProcess proxy_;
  MenuHost host_;
  Client daemon_;  // asked and told without a proxy
  Answers cleanAnswers_;
  std::unique_ptr<Footprint> before_;
};

}  // namespace keldane::testing
