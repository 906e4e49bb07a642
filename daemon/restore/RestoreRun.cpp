#include "daemon/restore/RestoreRun.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "daemon/restore/staging/Stager.h"
#include "daemon/restore/staging/StagingWatch.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

/// Whether the repository may be usable later. A problem of the whole repository ends when its cause ends.
bool passesBy(Health health) {
  return health != Health::ready && health != Health::cancelled && health != Health::damaged &&
         health != Health::failed && health != Health::full;
}

/// The path with its links resolved, or the path itself when that fails.
std::string resolved(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  return error ? path : real.string();
}

}  // namespace

bool RestoreRun::isForAnother() const { return state_.request.user != geteuid() && state_.request.user != 0; }

RestoreRun::End RestoreRun::run() {
  state_.report.message.clear();
  if (state_.isPlacing) {
    if (const End end = goOnPlacing(); end != End::done) {
      return end;
    }
  } else {
    removeStaging();
  }
  for (;;) {
    state_.portion = nextPortion();
    if (state_.portion.empty()) {
      finish();
      return End::done;
    }
    if (const End end = runPortion(); end != End::done) {
      return end;
    }
    if (!hooks_.mayGoOn()) {
      return End::ended;
    }
  }
}

std::vector<std::uint32_t> RestoreRun::nextPortion() {
  std::vector<std::uint32_t> portion;
  std::optional<MountPlace> place;
  ApartPaths paths;
  state_.itemsToCome = 0;
  for (std::uint32_t item = 0; item < state_.request.items.size(); ++item) {
    if (targets_.isCovered(item)) {
      state_.isDone[item] = true;
    }
    if (state_.isDone[item]) {
      continue;
    }
    ++state_.itemsToCome;
    const std::string& path = state_.request.items[item].path;
    if (targets_.areOwnPlaces() && !isForAnother()) {
      const MountPlace own = mountPlace(deepestFolder(path));
      if (place && own != *place) {
        continue;
      }
      place = own;
    }
    if (paths.add(path)) {
      portion.push_back(item);
    }
  }
  return portion;
}

EngineAnswer RestoreRun::planPortion() {
  plan_ = {};
  RestorePlanner planner(store_, engine_, folder_, job_);
  for (const std::uint32_t item : state_.portion) {
    const EngineAnswer answer =
        planner.add(state_.request.items[item], targets_.nameOf(item), state_.request.before, plan_);
    if (!answer) {
      return answer;
    }
  }
  const EngineAnswer answer = isForAnother() ? planner.keepOnly(state_.request.user, plan_) : EngineAnswer();
  if (answer && plan_.leavesOutForeign) {
    plan_.problems.emplace_back("What belongs to other users is left out.");
  }
  return answer;
}

// Restores one portion, from the plan to the places. When it cannot be finished now, nothing of it is
// reported.
RestoreRun::End RestoreRun::runPortion() {
  const RestoreReport before = state_.report;
  plan_ = {};
  hooks_.tell(state_.request.items[state_.portion.front()].path);
  if (const EngineAnswer answer = planPortion(); !answer) {
    return endFor(answer, before);
  }
  if (plan_.files.empty() && plan_.items.empty()) {
    notePlan();
    finishPortion();
    return End::done;
  }
  std::error_code error;
  if (!targets_.areOwnPlaces() && !isForAnother()) {
    std::filesystem::create_directories(targets_.root(), error);
  }
  const std::string folder = isForAnother()            ? folder_.work()
                             : targets_.areOwnPlaces() ? deepestFolder(plan_.items.front().path)
                                                       : resolved(targets_.root());
  const Staging staging = error ? Staging() : makeStaging(folder);
  const int reason = error ? error.value() : errno;
  notePlan();
  if (!staging) {
    const std::string why = std::generic_category().message(reason) + ".";
    return endFor({Health::failed, "Nothing can be written to " + folder + ": " + why}, state_.report);
  }
  if (const EngineAnswer answer = stagePortion(staging); !answer) {
    return endFor(answer, before);
  }
  beginPlacing(staging);
  return placePortion(staging);
}

// Called only after the staging was recorded. A job that is interrupted before begins the portion anew with
// its plan.
void RestoreRun::notePlan() {
  for (const std::string& problem : plan_.problems) {
    noteProblem(problem);
  }
  state_.itemsToCome -= std::min<std::uint64_t>(state_.itemsToCome, state_.portion.size());
  state_.report.files += plan_.files.size();
  state_.report.bytes += plan_.bytes();
  hooks_.tell(state_.request.items[state_.portion.front()].path);
}

RestoreRun::End RestoreRun::endFor(const EngineAnswer& answer, const RestoreReport& before) {
  if (!hooks_.mayGoOn() || answer.health == Health::cancelled || passesBy(answer.health)) {
    state_.report = before;
    removeStaging();
    state_.report.message = answer.health == Health::cancelled ? "" : answer.detail;
    return hooks_.mayGoOn() ? End::later : End::ended;
  }
  noteProblem(answer.detail);
  state_.report.message = answer.detail;
  finishPortion();
  return End::done;
}

// The staging is made as near to the target as can be written, so that files can be moved there, or else in
// the daemon's own folder.
Staging RestoreRun::makeStaging(const std::string& folder) {
  const std::string name = Staging::nameFor(state_.number);
  const MountPlace place = mountPlace(folder);
  std::error_code ignored;
  std::filesystem::create_directories(folder_.work(), ignored);
  for (std::string at = folder;; at = folderAbove(at)) {
    const bool isNear = mountPlace(at) == place;
    state_.staging = appendPathComponent(isNear ? at : folder_.work(), name);
    hooks_.keep();
    Staging staging = Staging::make(isNear ? at : folder_.work(), name);
    const bool mayBeElsewhere = errno == EACCES || errno == EPERM || errno == EROFS;
    if (staging || !isNear || !mayBeElsewhere) {
      return staging;
    }
    if (at == "/") {
      state_.staging = appendPathComponent(folder_.work(), name);
      hooks_.keep();
      return Staging::make(folder_.work(), name);
    }
  }
}

EngineAnswer RestoreRun::stagePortion(const Staging& staging) {
  Stager::Options options;
  options.ownPlaces = targets_.areOwnPlaces();
  if (isForAnother()) {
    options.owner = state_.request.user;
  }
  options.mayGoOn = hooks_.mayGoOn;
  options.problem = [this](const std::string& sentence) { noteProblem(sentence); };
  // The last 2 % are for placing the files.
  const std::uint64_t most = plan_.bytes() / 100 * 98;
  const std::uint64_t before = state_.report.bytesDone;
  const StagingWatch watch(staging.folder(), [this, most, before](std::uint64_t bytes) {
    hooks_.staged(before + std::min(bytes, most));
  });
  const EngineAnswer answer = Stager(engine_, staging, job_, std::move(options)).stage(plan_);
  return answer && !hooks_.mayGoOn() ? EngineAnswer{Health::cancelled, {}} : answer;
}

void RestoreRun::finishPortion() {
  for (const std::uint32_t item : state_.portion) {
    state_.isDone[item] = true;
  }
  state_.portion.clear();
  state_.isPlacing = false;
  hooks_.keep();  // before the staging is removed, because without it all items would count as placed
  removeStaging();
  plan_ = {};
}

void RestoreRun::finish() {
  RestoreReport& report = state_.report;
  report.filesDone = report.files;
  report.bytesDone = report.bytes;
  const bool hasResult = report.restored + report.skipped > 0;
  report.status = report.problems.empty() ? RestoreStatus::done
                  : hasResult             ? RestoreStatus::doneWithProblems
                                          : RestoreStatus::failed;
  if (report.status != RestoreStatus::failed) {
    report.message.clear();
  } else if (report.message.empty()) {
    report.message = report.problems.size() == 1 ? report.problems.front() : "Nothing could be restored.";
  }
}

void RestoreRun::removeStaging() {
  if (!state_.staging.empty()) {
    Staging::open(state_.staging).remove();
    state_.staging.clear();
    state_.isPlacing = false;
    hooks_.keep();
  }
}

}  // namespace keldane
