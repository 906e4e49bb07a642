// The messages of a campaign's hosts about their cycles, and the printed report.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "tests/tools/faults/campaign/CampaignHost.h"

namespace keldane::testing {

/// Writes a message of a lane as one line in one call: "begin LANE CYCLE", "end LANE CYCLE OUTCOME" or "fail
/// LANE CYCLE TEXT".
void say(int pipe, const std::string& word, std::uint32_t lane, std::uint32_t cycle, std::string text = {});

class CampaignReport {
 public:
  explicit CampaignReport(std::uint64_t seed) : seed_(seed) {}

  /// Takes a line that a lane has written.
  void hear(const std::string& line);
  bool hasFailed(std::uint32_t lane) const { return hasFailed_.contains(lane); }
  /// Prints a failure at once: of the cycle that runs in a lane, or of the daemon.
  void fail(std::uint32_t lane, const std::string& text);
  void fail(const std::string& text);
  void printTable() const;

  std::uint32_t done() const { return done_; }
  std::size_t failures() const { return failures_; }

 private:
  const std::uint64_t seed_;
  std::map<std::uint32_t, std::uint32_t> running_;  // cycle by lane
  std::set<std::uint32_t> hasFailed_;
  std::map<std::string, std::array<std::uint32_t, kOutcomes.size()>> table_;
  std::uint32_t done_ = 0;
  std::size_t failures_ = 0;
};

}  // namespace keldane::testing
