// Jobs that restore files from the repository. They survive the end of the daemon.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "daemon/engine/BackupEngine.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/restore/placing/Conflict.h"
#include "daemon/store/Store.h"

namespace keldane {

/// A request: the items to restore, and their target.
struct RestoreRequest {
  struct Item {
    std::string path;           ///< the path of a file, or of a folder with everything below it
    std::uint32_t version = 0;  ///< the state as of this backup; 0: the newest
  };
  std::vector<Item> items;
  std::string target;     ///< the folder into which each item goes under its own name; empty: its own place
  std::string exactPath;  ///< for a single item: the path that it gets, instead of `target`
  Conflict conflict = Conflict::keepBoth;
  double before = 0;           ///< seconds since the UNIX epoch: the state as of this time; 0: no bound
  std::uint32_t priority = 0;  ///< jobs with a higher priority run first
  uid_t user = 0;              ///< the user who asked; only a daemon of root serves other users than its own
  gid_t group = 0;
  std::vector<gid_t> groups;
};

/// The state of a job. Clients receive the numbers.
enum class RestoreStatus : std::uint32_t {
  unknown = 0,
  waiting = 1,
  running = 2,
  done = 3,
  doneWithProblems = 4,
  failed = 5,
  cancelled = 6
};

struct RestoreReport {
  RestoreStatus status = RestoreStatus::unknown;
  std::uint64_t files = 0, filesDone = 0;  ///< found to restore; restored, skipped or failed so far
  std::uint64_t bytes = 0, bytesDone = 0;
  std::uint64_t restored = 0, skipped = 0;
  std::vector<std::string> problems;  ///< a sentence each, at most 1,000
  std::string message;                ///< the reason why the job failed or waits; empty otherwise
};

/// Runs jobs one at a time on a thread of its own, those with a higher priority first. A file is first
/// restored to a folder beside its target and is moved to its place when it is whole. An existing file is
/// overwritten only if the request says so, and links at the target are not followed. Jobs are kept in the
/// store and go on after a restart. Any thread may call.
class RestoreJobs {
 public:
  /// `changed` is called, on the job's thread, when a job begins, ends or goes on to another file.
  RestoreJobs(Store& store, BackupEngine& engine, DataFolder folder, std::function<void()> changed);
  ~RestoreJobs();
  RestoreJobs(const RestoreJobs&) = delete;
  RestoreJobs& operator=(const RestoreJobs&) = delete;

  void start();
  /// Stops the current job, which goes on after the next start.
  void stop();

  /// The number of a new job; 0 when it is refused, with a sentence that says why.
  std::uint32_t add(const RestoreRequest& request, std::string* refusal);
  RestoreReport report(std::uint32_t job) const;
  /// 0 when none runs.
  std::uint32_t current() const;
  /// The path that is being restored; empty when none.
  std::string currentFile() const;
  /// The user who asked for a job; absent for an unknown one.
  std::optional<uid_t> userOf(std::uint32_t job) const;
  /// Cancels a job. Placed files stay, and the others are listed in the report. A job that has ended does not
  /// change.
  void cancel(std::uint32_t job);
  void cancelAll();
  /// Tries waiting jobs at once, because the repository may be usable again.
  void tryNow();

 private:
  class Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace keldane
