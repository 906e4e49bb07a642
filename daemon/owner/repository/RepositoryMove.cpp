// The requests that change the key and move the repository to another place.
#include <algorithm>
#include <chrono>
#include <map>
#include <thread>
#include <tuple>

#include "daemon/care/KeyChange.h"
#include "daemon/owner/repository/RepositoryCall.h"
#include "daemon/owner/repository/RepositoryTrial.h"

namespace keldane {

namespace {

constexpr auto kLookForRestores = std::chrono::milliseconds(200);

/// The values that a copied snapshot has in common with its original. The tree is a hash of everything in it.
using SnapshotMark = std::tuple<double, std::string, std::vector<std::string>, std::string>;

SnapshotMark markOf(const Snapshot& snapshot) {
  return {snapshot.time, snapshot.host, snapshot.tags, snapshot.tree};
}

}  // namespace

// Called before the key or the place changes, because a restore reads both at each of its steps.
void RepositoryRequests::waitForRestores(const EngineJob& job) const {
  while (daemon_->restores().current() != 0 && !job.cancelled) {
    std::this_thread::sleep_for(kLookForRestores);
  }
}

PropertyList RepositoryRequests::changeKey(const PropertyList&) {
  return change([&](EngineJob& job) {
    const ScopedLock turn(daemon_->care().turn());
    waitForRestores(job);
    if (job.cancelled) {
      return errorAnswer("It was cancelled.");
    }
    const BackupWorker::Stillness stillness = daemon_->worker().holdStill();
    const EngineAnswer answer = KeyChange(daemon_->engine(), daemon_->files()).run(job);
    return answer ? PropertyList::dictionary(PropertyList::Entries()) : errorAnswer(answer.detail);
  });
}

void RepositoryRequests::noteMove(const char* status) {
  const ScopedLock guard(moveMutex_);
  move_.status = status;
}

PropertyList RepositoryRequests::moveRepository(const PropertyList& request) {
  if (const std::optional<PropertyList> refused = refusedPlace(request)) {
    return *refused;
  }
  return change([&](EngineJob& job) {
    const std::optional<RepositoryConfig> before = daemon_->files().configuration();
    if (!before || before->repositoryId.empty()) {
      return errorAnswer("No repository has been set up yet.");
    }
    if (before->location == request["location"].string()) {
      return errorAnswer("The backup is kept there already.");
    }
    {
      const ScopedLock guard(moveMutex_);
      move_ = Move();
      move_.job = &job;
      move_.status = "copying";
    }
    EngineAnswer answer;
    std::string id;
    try {
      Trial trial(*daemon_, engine_, request);
      {
        const ScopedLock guard(moveMutex_);
        move_.location = trial.configuration().publicLocation();
      }
      answer = move(trial, job);
      id = trial.configuration().repositoryId;
    } catch (const std::exception& error) {
      answer = {Health::failed, error.what()};
    }
    const ScopedLock guard(moveMutex_);
    move_.job = nullptr;
    move_.status = answer ? "done" : answer.health == Health::cancelled ? "cancelled" : "failed";
    move_.message = answer ? std::string() : answer.detail;
    return answer ? PropertyList::dictionary({{"repositoryId", id}}) : errorAnswer(answer.detail);
  });
}

/// Copies and checks most of the data while backups go on. Then the backups are held still, and the snapshots
/// that were made meanwhile are copied.
EngineAnswer RepositoryRequests::move(Trial& trial, EngineJob& job) {
  const ScopedLock turn(daemon_->care().turn());
  std::vector<Snapshot> snapshots;
  EngineAnswer answer = daemon_->engine().snapshots(true, snapshots, job);
  answer = answer ? trial.makeForCopyOf(daemon_->files(), job) : answer;
  if (!answer) {
    return answer;
  }
  {
    const ScopedLock guard(moveMutex_);
    move_.all = snapshots.size();
  }
  const auto copy = [&] {
    return trial.engine().copyFrom(
        daemon_->files(),
        [this](std::size_t done) {
          const ScopedLock guard(moveMutex_);
          move_.done = done;
          move_.all = std::max(move_.all, done);
        },
        job);
  };
  answer = copy();
  if (answer) {
    noteMove("checking");
    // A server has compared the data with its hashes when it received them. Reading all of it back could take
    // days.
    const unsigned parts = trial.configuration().localFolder() ? 1 : 0;
    answer = trial.engine().check(parts, parts, job);
  }
  if (answer) {
    noteMove("switching");
    waitForRestores(job);
    const BackupWorker::Stillness stillness = daemon_->worker().holdStill();
    answer = copy();
    std::map<std::uint32_t, std::string> ids;
    answer = answer ? compareCopy(trial, ids, job) : answer;
    if (answer && job.cancelled) {
      answer = {Health::cancelled, "It was cancelled."};
    }
    if (answer) {
      trial.replaceIn(daemon_->files());
      daemon_->store().setSnapshotIds(ids);
      useNewPlace();
    }
  }
  return answer;
}

/// Compares the copy with the original. `ids` receives the copies' ids by the catalogue's snapshot numbers,
/// because the catalogue describes the copies, too.
EngineAnswer RepositoryRequests::compareCopy(Trial& trial, std::map<std::uint32_t, std::string>& ids,
                                             EngineJob& job) const {
  std::vector<Snapshot> here, there;
  EngineAnswer answer = daemon_->engine().snapshots(true, here, job);
  answer = answer ? trial.engine().snapshots(true, there, job) : answer;
  if (!answer) {
    return answer;
  }
  std::map<SnapshotMark, std::string> copies;
  for (const Snapshot& snapshot : there) {
    copies[markOf(snapshot)] = snapshot.id;
  }
  for (const Snapshot& snapshot : here) {
    const auto copy = copies.find(markOf(snapshot));
    if (copy == copies.end()) {
      return {Health::failed, "Not every version has come along. The backup stays where it is."};
    }
    if (isOfInterest(snapshot, trial.configuration())) {
      ids[numberFromTags(snapshot, "number:")] = copy->second;
    }
  }
  return EngineAnswer(trial.engine().check(0, 0, job));
}

PropertyList RepositoryRequests::moveReport(const PropertyList&) {
  const ScopedLock guard(moveMutex_);
  return PropertyList::dictionary({{"status", move_.status},
                                   {"location", move_.location},
                                   {"done", std::uint64_t{move_.done}},
                                   {"all", std::uint64_t{move_.all}},
                                   {"message", move_.message}});
}

PropertyList RepositoryRequests::cancelMove(const PropertyList&) {
  const ScopedLock guard(moveMutex_);
  if (move_.job != nullptr) {
    move_.job->cancelled = true;
  }
  return PropertyList::dictionary(PropertyList::Entries());
}

}  // namespace keldane
