// Scans that no change has asked for.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "daemon/rules/RuleBook.h"
#include "daemon/scan/Scanner.h"
#include "daemon/watch/Watcher.h"

namespace keldane {

/// Scans all places every few hours, to find changes that were missed. It also scans the folders that cannot
/// be watched, first after a minute and then after twice as long each time. Both work in small steps with
/// pauses between them. Used on one thread.
class QuietLook {
 public:
  struct Timing {
    std::chrono::milliseconds everything = std::chrono::hours(4);
    std::chrono::milliseconds firstRound = std::chrono::minutes(1);
    std::chrono::milliseconds longestRound = std::chrono::hours(1);
  };
  QuietLook(Scanner& scanner, const RuleBook& rules, const Watcher& watcher, const Timing& timing);

  struct Step {
    bool news = false;                     ///< a file has become pending
    std::vector<std::string> below;        ///< folders that are to be scanned with everything below them
    std::chrono::milliseconds pause = {};  ///< before the next step
  };
  /// Does a part of the work that is due. It takes some milliseconds, or as long as one folder takes.
  Step step();

 private:
  using Clock = std::chrono::steady_clock;

  bool lookAtEverything(Step& step);
  bool lookAtUnwatched(Step& step);

  Scanner& scanner_;
  const RuleBook& rules_;
  const Watcher& watcher_;
  const Timing timing_;
  Clock::time_point nextEverything_;
  std::vector<std::string> places_;  // the remaining places of a scan of all places
  std::optional<Scanner::Walk> walk_;
  std::chrono::milliseconds round_;
  Clock::time_point nextRound_;
  std::optional<std::string> lastUnwatched_;  // the last folder of the current round
};

}  // namespace keldane
