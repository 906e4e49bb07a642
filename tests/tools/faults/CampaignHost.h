// A host of a campaign: it shows menus over links with faults, and judges each by what its link can have
// told it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "hosts/core/MenuHost.h"
#include "tests/support/Footprint.h"
#include "tests/support/PluginBundle.h"
#include "tests/support/UserPreferences.h"
#include "tests/tools/faults/CampaignScene.h"
#include "tests/tools/faults/MenuOracle.h"
#include "tests/tools/faults/ProxyProcess.h"

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
  };

  /// A menu that stays open is there until its link, if it was lost, is back.
  Cycle cycle(const FaultPlan& plan, std::uint32_t command, bool staysOpen = false);
  void checkMenu(const FaultPlan& plan, const Cycle& faulty) const;
  void checkFootprint(const char* after) const;

  const std::uint64_t seed_;
  const UserPreferences user_;
  const PluginBundle bundle_;
  const Subject subject_;
  ProxyProcess proxy_;
  MenuHost host_;
  Answers cleanAnswers_;
  std::unique_ptr<Footprint> before_;
};

}  // namespace keldane::testing
