// The requests that change the key and move the repository to another place.
#include <algorithm>
#include <chrono>
#include <set>
#include <thread>
#include <tuple>

#include "daemon/care/KeyChange.h"
#include "daemon/owner/RepositoryCall.h"
#include "daemon/owner/RepositoryTrial.h"

namespace keldane {

namespace {

constexpr auto kLookForRestores = std::chrono::milliseconds(200);

/// The values that a copied snapshot has in common with its original.
using SnapshotMark = std::tuple<double, std::string, std::vector<std::string>>;

std::multiset<SnapshotMark> marksOf(const std::vector<Snapshot>& snapshots) {
  std::multiset<SnapshotMark> marks;
  for (const Snapshot& snapshot : snapshots) {
    marks.emplace(snapshot.time, snapshot.host, snapshot.tags);
  }
  return marks;
}

}  // namespace

// A restore reads key and place at each of its steps.
void RepositoryRequests::waitForRestores(const EngineJob& job) const {
  while (daemon_->restores().current() != 0 && !job.cancelled) {
    std::this_thread::sleep_for(kLookForRestores);
  }
}

PropertyList RepositoryRequests::changeKey(const PropertyList&) {
  std::string refusal;
  const std::unique_lock changing = beginChange(refusal);
  if (!changing) {
    return errorAnswer(refusal);
  }
  Call call(*this);
  try {
    const std::unique_lock turn = daemon_->care().takeTurn();
    waitForRestores(call.job);
    const BackupWorker::Stillness stillness = daemon_->worker().holdStill();
    const EngineAnswer answer = KeyChange(daemon_->engine(), daemon_->files()).run(call.job);
    return answer ? PropertyList::dictionary(PropertyList::Entries()) : errorAnswer(answer.detail);
  } catch (const std::exception& error) {
    return errorAnswer(error.what());
  }
}

void RepositoryRequests::noteMove(const char* status) {
  const std::lock_guard guard(moveMutex_);
  move_.status = status;
}

PropertyList RepositoryRequests::moveRepository(const PropertyList& request) {
  if (const std::optional<PropertyList> refused = refusedPlace(request)) {
    return *refused;
  }
  std::string refusal;
  const std::unique_lock changing = beginChange(refusal);
  if (!changing) {
    return errorAnswer(refusal);
  }
  const std::optional<RepositoryConfig> before = daemon_->files().configuration();
  if (!before || before->repositoryId.empty()) {
    return errorAnswer("No repository has been set up yet.");
  }
  if (before->location == request["location"].string()) {
    return errorAnswer("The backup is kept there already.");
  }
  Call call(*this);
  EngineAnswer answer;
  std::string id;
  {
    const std::lock_guard guard(moveMutex_);
    move_ = Move();
    move_.job = &call.job;
    move_.status = "copying";
  }
  try {
    Trial trial(*daemon_, engine_, request);
    {
      const std::lock_guard guard(moveMutex_);
      move_.location = trial.configuration().publicLocation();
    }
    answer = move(trial, call.job);
    id = trial.configuration().repositoryId;
  } catch (const std::exception& error) {
    answer = {Health::failed, error.what()};
  }
  const std::lock_guard guard(moveMutex_);
  move_.job = nullptr;
  move_.status = answer ? "done" : answer.health == Health::cancelled ? "cancelled" : "failed";
  move_.message = answer ? std::string() : answer.detail;
  return answer ? PropertyList::dictionary({{"repositoryId", id}}) : errorAnswer(answer.detail);
}

/// Most is copied and read while backups go on; then they stand still for what has come meanwhile.
EngineAnswer RepositoryRequests::move(Trial& trial, EngineJob& job) {
  const std::unique_lock turn = daemon_->care().takeTurn();
  std::vector<Snapshot> snapshots;
  EngineAnswer answer = daemon_->engine().snapshots(true, snapshots, job);
  answer = answer ? trial.makeForCopyOf(daemon_->files(), job) : answer;
  if (!answer) {
    return answer;
  }
  {
    const std::lock_guard guard(moveMutex_);
    move_.all = snapshots.size();
  }
  const auto copy = [&] {
    return trial.engine().copyFrom(
        daemon_->files(),
        [this](std::size_t done) {
          const std::lock_guard guard(moveMutex_);
          move_.done = done;
          move_.all = std::max(move_.all, done);
        },
        job);
  };
  answer = copy();
  if (answer) {
    noteMove("checking");
    // What a server has taken it has compared with its hash; to read all of it back can take days.
    const unsigned parts = trial.configuration().localFolder() ? 1 : 0;
    answer = trial.engine().check(parts, parts, job);
  }
  if (answer) {
    noteMove("switching");
    waitForRestores(job);
    const BackupWorker::Stillness stillness = daemon_->worker().holdStill();
    answer = copy();
    answer = answer ? compareCopy(trial, job) : answer;
    if (answer && job.cancelled) {
      answer = {Health::cancelled, "It was cancelled."};
    }
    if (answer) {
      takeOverNow(trial, false);
    }
  }
  return answer;
}

EngineAnswer RepositoryRequests::compareCopy(Trial& trial, EngineJob& job) const {
  std::vector<Snapshot> here, there;
  EngineAnswer answer = daemon_->engine().snapshots(true, here, job);
  answer = answer ? trial.engine().snapshots(true, there, job) : answer;
  const std::multiset<SnapshotMark> wanted = marksOf(here), copied = marksOf(there);
  if (answer && !std::includes(copied.begin(), copied.end(), wanted.begin(), wanted.end())) {
    return {Health::failed, "Not every version has come along. The backup stays where it is."};
  }
  return answer ? EngineAnswer(trial.engine().check(0, 0, job)) : answer;
}

PropertyList RepositoryRequests::moveReport(const PropertyList&) {
  const std::lock_guard guard(moveMutex_);
  return PropertyList::dictionary({{"status", move_.status},
                                   {"location", move_.location},
                                   {"done", std::uint64_t{move_.done}},
                                   {"all", std::uint64_t{move_.all}},
                                   {"message", move_.message}});
}

PropertyList RepositoryRequests::cancelMove(const PropertyList&) {
  const std::lock_guard guard(moveMutex_);
  if (move_.job != nullptr) {
    move_.job->cancelled = true;
  }
  return PropertyList::dictionary(PropertyList::Entries());
}

}  // namespace keldane
