// The looks at the disk that nothing has asked for.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "daemon/rules/RuleBook.h"
#include "daemon/scan/Scanner.h"
#include "daemon/watch/Watcher.h"

namespace keldane {

/// Looks at everything every few hours, for the sake of what was not told, and at the folders that cannot be
/// watched, first after a minute and then after twice as long each time. Both go in small steps with pauses
/// between them. One thread.
class QuietLook {
 public:
  struct Timing {
    std::chrono::milliseconds everything = std::chrono::hours(4);
    std::chrono::milliseconds firstRound = std::chrono::minutes(1);
    std::chrono::milliseconds longestRound = std::chrono::hours(1);
  };
  QuietLook(Scanner& scanner, const RuleBook& rules, const Watcher& watcher, const Timing& timing);

  struct Step {
    bool news = false;                     ///< a file has come to wait
    std::vector<std::string> below;        ///< has to be looked at with all below it
    std::chrono::milliseconds pause = {};  ///< before the next step
  };
  /// Does what is due, for some milliseconds at most but where one folder takes longer.
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
  std::vector<std::string> places_;  // that are left of a look at everything
  std::optional<Scanner::Walk> walk_;
  std::chrono::milliseconds round_;
  Clock::time_point nextRound_;
  std::optional<std::string> lastUnwatched_;  // of the round at hand
};

}  // namespace keldane
