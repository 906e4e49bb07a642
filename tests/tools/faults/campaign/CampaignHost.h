// A host of a campaign. It shows menus over links with faults, and checks each menu against the bytes that
// its link delivered.
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

/// A menu compared with the right one.
enum class Outcome : std::uint8_t { whole, fewer, none, other };
constexpr std::array<const char*, 4> kOutcomes = {"whole", "fewer", "none", "other"};

/// One host, whose plug-in finds the daemon at the proxy's socket.
class CampaignHost {
 public:
  CampaignHost(const Scene& scene, std::uint64_t seed, std::uint32_t firstCycle);

  /// Runs a cycle and returns its outcome. Throws when the cycle went wrong.
  Outcome run(std::uint32_t number);

 private:
  struct Cycle {
    Titles menu;
    ConnectionReport report;
    /// The connection over which the command was sent, if the link was lost while the menu was open.
    std::optional<ConnectionReport> back;
  };

  /// With `staysOpen`, the menu stays open until a lost link is back.
  Cycle cycle(const FaultPlan& plan, std::uint32_t command, bool staysOpen = false);
  void checkMenu(const FaultPlan& plan, const Cycle& faulty) const;
  void checkCommand(const FaultPlan& plan, std::uint32_t command, const Cycle& faulty);
  /// The state in which the daemon has a file that was to be backed up as soon as possible.
  Standing standing(const std::string& path);
  /// Restores the state that the file had before that command.
  void takeBack(const std::string& path);
  void checkFootprint(const char* after) const;

  const std::uint64_t seed_;
  const UserPreferences user_;
  const PluginBundle bundle_;
  const Subject subject_;
  ProxyProcess proxy_;
  MenuHost host_;
  Client daemon_;  // a direct connection, without a proxy
  Answers cleanAnswers_;
  std::unique_ptr<Footprint> before_;
};

}  // namespace keldane::testing
