// One job of restoring, from its request to the last file in its place.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "daemon/restore/RestorePlan.h"
#include "daemon/restore/RestoreRecords.h"
#include "daemon/restore/placing/Placer.h"
#include "daemon/restore/staging/Staging.h"
#include "daemon/restore/users/RestoreTargets.h"
#include "daemon/restore/users/UserTarget.h"

namespace keldane {

/// Works through a job in portions. Items that go to one mount and do not overlap form a portion: they are
/// made whole in one staging and then placed. When a process ended while it placed a portion, the next one
/// goes on with the items that are left in the staging, so that nothing is placed twice. Used on one thread,
/// which may be told to end by `mayGoOn` and the engine's job.
class RestoreRun {
 public:
  struct Hooks {
    std::function<bool()> mayGoOn;
    std::function<void()> keep;  ///< called when the state has reached a point from which the job can go on
    std::function<void(const std::string& file)> tell;  ///< the report changed, or another file is at hand
    /// Called with the number of bytes that are done or in the staging, on another thread.
    std::function<void(std::uint64_t bytes)> staged;
  };
  enum class End {
    done,   ///< the report says how
    later,  ///< the repository cannot be used now; the report's message says why
    ended   ///< `mayGoOn` said so
  };
  RestoreRun(Store& store, BackupEngine& engine, const DataFolder& folder, EngineJob& job,
             RestoreState& state, Hooks hooks)
      : store_(store),
        engine_(engine),
        folder_(folder),
        job_(job),
        state_(state),
        hooks_(std::move(hooks)),
        targets_(state.request) {}

  End run();
  /// Called after a cancellation. Lists the items that were not placed, and removes the staging.
  void giveUp();

 private:
  bool isForAnother() const;
  std::vector<std::uint32_t> nextPortion();
  EngineAnswer planPortion();
  void notePlan();
  End runPortion();
  End endFor(const EngineAnswer& answer, const RestoreReport& before);
  Staging makeStaging(const std::string& folder);
  EngineAnswer stagePortion(const Staging& staging);
  void beginPlacing(const Staging& staging);
  End goOnPlacing();
  End placePortion(const Staging& staging);
  bool placeStaged(int staged);
  PlaceWatch watch();
  void noteProblem(const std::string& sentence) { addProblem(state_.report, sentence); }
  void finishPortion();
  void finish();
  void removeStaging();
  void listRest(int folder, const std::string& path);

  Store& store_;
  BackupEngine& engine_;
  const DataFolder folder_;
  EngineJob& job_;
  RestoreState& state_;
  const Hooks hooks_;
  const RestoreTargets targets_;
  RestorePlan plan_;    // the plan of the current portion
  bool again_ = false;  // an earlier run has begun to place the current portion
};

}  // namespace keldane
