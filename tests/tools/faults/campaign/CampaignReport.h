// What the hosts of a campaign say of their cycles, and what is printed of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "tests/tools/faults/campaign/CampaignHost.h"

namespace keldane::testing {

/// What lanes say, one line each that is written at once: "begin LANE CYCLE", "end LANE CYCLE OUTCOME" or
/// "fail LANE CYCLE TEXT".
void say(int pipe, const std::string& word, std::uint32_t lane, std::uint32_t cycle, std::string text = {});

class CampaignReport {
 public:
  explicit CampaignReport(std::uint64_t seed) : seed_(seed) {}

  /// A line that a lane has said.
  void hear(const std::string& line);
  bool hasFailed(std::uint32_t lane) const { return hasFailed_.contains(lane); }
  /// Failures are printed at once: of a lane in the cycle that runs in it, and of the daemon.
  void fail(std::uint32_t lane, const std::string& text);
  void fail(const std::string& text);
  void printTable() const;

  std::uint32_t done() const { return done_; }
  std::size_t failures() const { return failures_; }

 private:
  const std::uint64_t seed_;
  std::map<std::uint32_t, std::uint32_t> running_;  // lane and cycle
  std::set<std::uint32_t> hasFailed_;
  std::map<std::string, std::array<std::uint32_t, kOutcomes.size()>> table_;
  std::uint32_t done_ = 0;
  std::size_t failures_ = 0;
};

}  // namespace keldane::testing
