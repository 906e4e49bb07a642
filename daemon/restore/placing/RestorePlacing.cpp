// The second half of a portion: whole items are placed, the others are listed as problems.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "daemon/restore/RestoreRun.h"
#include "daemon/restore/staging/Stager.h"
#include "platform/files/Path.h"

namespace keldane {

void RestoreRun::beginPlacing(const Staging& staging) {
  std::uint64_t failed = 0;
  for (const auto& [path, file] : plan_.files) {
    if (file.state == WantedFile::failed) {
      ++failed;
      state_.report.bytesDone += file.size;
    }
  }
  const TreeCount count = countTree(staging.folder(), Stager::kResult);
  state_.report.filesDone += failed;
  // There may be links that the catalogue did not know.
  state_.report.files = std::max(state_.report.files, state_.report.filesDone + count.files);
  state_.portionFiles = count.files;
  state_.portionBytes = count.bytes;
  state_.isPlacing = true;
  if (state_.request.conflict == Conflict::replace) {
    syncfs(staging.folder());  // a file that replaces another must itself survive a power cut
  }
  again_ = false;
  hooks_.keep();
}

// Items that are no longer in the staging were placed before the interruption.
RestoreRun::End RestoreRun::goOnPlacing() {
  const Staging staging = Staging::open(state_.staging);
  if (!staging) {
    state_.isPlacing = false;
    return End::done;
  }
  const TreeCount left = countTree(staging.folder(), Stager::kResult);
  const std::uint64_t files = state_.portionFiles - std::min(state_.portionFiles, left.files);
  state_.report.restored += files;
  state_.report.filesDone += files;
  state_.report.bytesDone += state_.portionBytes - std::min(state_.portionBytes, left.bytes);
  again_ = true;
  return placePortion(staging);
}

RestoreRun::End RestoreRun::placePortion(const Staging& staging) {
  const Descriptor staged(openFolderIn(staging.folder(), Stager::kResult, O_RDONLY));
  if (!placeStaged(staged.get())) {
    return End::ended;
  }
  finishPortion();
  return End::done;
}

bool RestoreRun::placeStaged(int staged) {
  const std::string temporary = lastPathComponent(state_.staging);
  const RestoreRequest& request = state_.request;
  int error = 0;
  if (isForAnother()) {
    UserTarget target({.user = request.user,
                       .group = request.group,
                       .groups = request.groups,
                       .root = targets_.root(),
                       .temporaryName = temporary,
                       .conflict = request.conflict,
                       .again = again_,
                       .mayGoOn = hooks_.mayGoOn});
    error = target.error();
    if (error == 0) {
      return placeTree(staged, targets_.root(), target, watch());
    }
  } else {
    Descriptor root(open(targets_.root().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    error = root ? 0 : errno;
    DirectTarget target(std::move(root), {.conflict = request.conflict,
                                          .temporaryName = temporary,
                                          .keepTimes = false,
                                          .again = again_,
                                          .mayGoOn = hooks_.mayGoOn});
    if (error == 0) {
      return placeTree(staged, targets_.root(), target, watch());
    }
  }
  state_.report.filesDone += state_.portionFiles;
  noteProblem("Nothing can be restored to " + targets_.root() + ": " +
              std::generic_category().message(error) + ".");
  return error != ECANCELED;
}

PlaceWatch RestoreRun::watch() {
  const auto count = [this](const TreeCount& done, std::uint64_t& kind) {
    kind += done.files;
    state_.report.filesDone += done.files;
    state_.report.bytesDone += done.bytes;
  };
  return {.mayGoOn = hooks_.mayGoOn,
          .begins = [this](const std::string& path) { hooks_.tell(path); },
          .placed = [this, count](const TreeCount& done) { count(done, state_.report.restored); },
          .skipped = [this, count](const TreeCount& done) { count(done, state_.report.skipped); },
          .failed =
              [this, count](const TreeCount& done, const std::string& sentence) {
                std::uint64_t failed = 0;
                count(done, failed);
                noteProblem(sentence);
              },
          .incomplete = [this](const std::string& sentence) { noteProblem(sentence); }};
}

void RestoreRun::giveUp() {
  constexpr std::string_view kReason = " is not restored: the job was cancelled.";
  if (const Staging staging = Staging::open(state_.staging); staging && state_.isPlacing) {
    const Descriptor staged(openFolderIn(staging.folder(), Stager::kResult, O_RDONLY));
    listRest(staged.get(), targets_.root());
    for (const std::uint32_t item : state_.portion) {
      state_.isDone[item] = true;
    }
  }
  for (std::size_t item = 0; item < state_.request.items.size(); ++item) {
    if (!state_.isDone[item]) {
      noteProblem(state_.request.items[item].path + std::string(kReason));
    }
  }
  removeStaging();
}

void RestoreRun::listRest(int folder, const std::string& path) {
  for (const std::string& name : namesIn(folder)) {
    const std::string whole = appendPathComponent(path, name);
    const StagedFolder below(folder, name);
    if (below) {
      listRest(below.get(), whole);
    } else if (state_.report.problems.size() < kMostRestoreProblems) {
      noteProblem(whole + " is not restored: the job was cancelled.");
    }
  }
}

}  // namespace keldane
