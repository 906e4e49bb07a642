#include "daemon/scan/Scanner.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

#include "daemon/Clock.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

/// A folder that is excluded by a mark in it is watched, because the mark may disappear.
bool isWorthALook(const Decision& decision, const std::string& folder) {
  return decision.mayHold || (decision.ignoredAt == folder && (decision.ignoring == lineOf(Mark::cacheTag) ||
                                                               decision.ignoring == lineOf(Mark::attribute)));
}

constexpr const char* kTooLong = "Its path is longer than the system allows.";

}  // namespace

Scanner::Scanner(Store& store, RuleBook& rules, PendingFiles& pending, Watcher* watcher)
    : store_(store),
      rules_(rules),
      pending_(pending),
      watcher_(watcher),
      knownMounts_(store),
      records_(store),
      failures_(store) {}

Scanner::Walk Scanner::begin(const std::string& place) {
  mounts_ = knownMounts_.refresh();
  Walk walk;
  walk.place = place;
  walk.scan = pending_.beginScan();
  const std::optional<struct stat> status = statusOf(place);
  if (!status) {
    rules_.dropMarks(place);
    pending_.remove(place);
    noteRemoved(place);
  } else if (!S_ISDIR(status->st_mode)) {
    walk.news = consider(place);
  } else {
    noteOtherFileSystem(place);
    const Decision decision = rules_.decide(place, true);
    if (isWorthALook(decision, place) || (!decision.barred && store_.holdsFiles(place))) {
      walk.folders.push_back(place);
    } else if (watcher_ != nullptr) {
      watcher_->forget(place);
    }
    if (decision.mayHold) {
      knownMounts_.remember(place);
    }
  }
  return walk;
}

void Scanner::step(Walk& walk, std::size_t folders, Pace pace) {
  if (failuresOf_ != walk.scan) {
    failures_.load(walk.place);
    failuresOf_ = walk.scan;
  }
  if (!walk.ahead && pace == Pace::fast && walk.folders.size() >= ReadAhead::kFolders) {
    walk.ahead = std::make_unique<ReadAhead>([this](FolderRead& folder) { read(folder); });
  }
  bool isChanged = false;
  const auto isLeft = [&] { return !walk.folders.empty() || (walk.ahead && !walk.ahead->isIdle()); };
  for (std::size_t looked = 0; looked < folders && isLeft();) {
    if (walk.ahead) {
      walk.ahead->take(walk.folders);
      for (FolderRead& folder : walk.ahead->next(walk.folders)) {
        walk.news = lookAt(folder, walk.folders, isChanged) || walk.news;
        ++looked;
      }
    } else {
      folder_.path = std::move(walk.folders.back());
      walk.folders.pop_back();
      read(folder_);
      walk.news = lookAt(folder_, walk.folders, isChanged) || walk.news;
      ++looked;
    }
  }
  if (!isLeft()) {
    walk.ahead.reset();
    pending_.endScan(walk.place, walk.scan);
    walk.isDone = true;
  }
}

bool Scanner::scan(const std::string& place, const std::atomic<bool>& cancelled) {
  Walk walk = begin(place);
  while (!walk.isDone && !cancelled) {
    step(walk, 64);
  }
  return walk.news;
}

bool Scanner::look(const std::string& folder, std::vector<std::string>& below) {
  const bool wasKnown = watcher_ == nullptr || watcher_->isKnown(folder);
  mounts_ = knownMounts_.refresh();
  failures_.load(folder);
  failuresOf_ = 0;
  std::vector<std::string> folders;
  bool isChanged = false;
  folder_.path = folder;
  read(folder_);
  const bool isNews = lookAt(folder_, folders, isChanged);
  if (isChanged || !wasKnown) {
    below.push_back(folder);
  } else {
    for (std::string& path : folders) {
      if (watcher_ != nullptr && !watcher_->isKnown(path)) {
        below.push_back(std::move(path));
      }
    }
  }
  return isNews;
}

/// Called on any thread.
void Scanner::read(FolderRead& folder) const {
  if (watcher_ != nullptr) {
    watcher_->watch(folder.path);
  }
  folder.scan = pending_.beginScan();
  folder.error =
      folder.entries.read(folder.path, rules_.heeds(Mark::cacheTag), rules_.heeds(Mark::attribute));
}

/// Compares the direct entries of one folder. `isChanged` becomes true when its marks have changed.
bool Scanner::lookAt(FolderRead& read, std::vector<std::string>& below, bool& isChanged) {
  const std::string& path = read.path;
  if (read.error != 0) {
    read.entries.close();
    couldNotRead(path, read.error);
    return false;
  }
  // The mark of another file system comes from the table of mounts and outranks the marks in the folder.
  if (mounts_.isMountPoint(path) && noteOtherFileSystem(path)) {
    isChanged = true;
  } else if (!rules_.isMarked(path, Mark::otherFileSystem)) {
    isChanged = rules_.setMark(path, read.entries.mark()) || isChanged;
  }
  Folder folder{path, read.entries, rules_.decideFiles(path), rules_.heeds(Mark::attribute), {}, {}, {}, {}};
  compareFiles(folder);
  const bool isNews = pending_.setFolder(path, folder.waiting, read.scan);
  findBelow(folder, below);
  if (!failures_.isEmpty()) {
    settleFailures(folder);
  }
  read.entries.close();
  noteMissing(folder);
  return isNews;
}

void Scanner::compareFiles(Folder& folder) {
  auto file = folder.entries.files().begin();
  const auto end = folder.entries.files().end();
  records_.visit(
      folder.path,
      [&](std::string_view name, const BackupRecord& record) {
        for (; file != end && file->name < name; ++file) {
          compare(folder, *file, nullptr);
        }
        if (file != end && file->name == name) {
          compare(folder, *file++, &record);
        } else if (!record.removed) {
          folder.missing.emplace_back(name);
        }
      },
      [&](std::string_view name) { folder.withRecords.emplace(name); });
  for (; file != end; ++file) {
    compare(folder, *file, nullptr);
  }
}

// The rules are asked last, because most files have not changed and then the rules do not matter.
void Scanner::compare(Folder& folder, const FolderEntries::File& file, const BackupRecord* record) {
  if (record != nullptr && record->removed) {
    store_.setRemoved(appendPathComponent(folder.path, file.name), false, 0);
  }
  const bool isSame =
      record != nullptr && !record->damaged && file.state == static_cast<const FileState&>(*record);
  if (isSame || folder.selected == false) {
    return;
  }
  if (isWanted(folder, file)) {
    folder.waiting.push_back({file.name, file.state.size, file.owner});
  }
}

// Most files need no path. Making one would take as long as reading the entry.
bool Scanner::isWanted(Folder& folder, const FolderEntries::File& file) {
  const auto path = [&] { return appendPathComponent(folder.path, file.name); };
  if (folder.heedsAttribute) {
    const bool isMarked = folder.entries.isMarked(file.name, folder.path);
    if (isMarked || !folder.selected) {  // otherwise nothing below the folder is marked
      rules_.setMark(path(), isMarked ? Mark::attribute : Mark::none);
      folder.selected.reset();
    }
  }
  if (!folder.selected.value_or(false) && !rules_.decide(path(), false).selected) {
    return false;
  }
  const bool isTooLong = folder.path.size() + 1 + file.name.size() >= PATH_MAX;
  if (isTooLong) {
    failures_.note(path(), kTooLong);
  }
  if (isTooLong || (!delays_.isEmpty() && delays_.holds(path(), file.state))) {
    folder.failing.emplace(file.name);
    return false;
  }
  return true;
}

// A folder that is not selected is scanned if stored files lie in it.
void Scanner::findBelow(const Folder& folder, std::vector<std::string>& below) {
  const bool hasMounts = mounts_.hasMountsBelow(folder.path);
  for (const std::string_view name : folder.entries.folders()) {
    std::string path = appendPathComponent(folder.path, name);
    const bool isMount = hasMounts && mounts_.isMountPoint(path);
    if (isMount || rules_.isMarked(path, Mark::otherFileSystem)) {
      noteOtherFileSystem(path);
    }
    const Decision decision = rules_.decide(path, true);
    if (isWorthALook(decision, path) || (!decision.barred && folder.withRecords.contains(name))) {
      if (isMount && decision.mayHold) {
        knownMounts_.remember(path);
      }
      below.push_back(std::move(path));
    } else if (watcher_ != nullptr) {
      watcher_->forget(path);
    }
  }
}

/// Sets or removes the mark of another file system. Returns whether it has changed.
bool Scanner::noteOtherFileSystem(const std::string& path) {
  const Mount* mount = mounts_.at(path);
  if (mount == nullptr || isLocal(*mount)) {
    return rules_.isMarked(path, Mark::otherFileSystem) && rules_.setMark(path, Mark::none);
  }
  return rules_.setMark(path, Mark::otherFileSystem);
}

void Scanner::noteMissing(const Folder& folder) {
  for (const std::string& name : folder.missing) {
    const std::string path = appendPathComponent(folder.path, name);
    if (!statusOf(path)) {
      noteRemoved(path);
    }
  }
  for (const std::string& name : folder.withRecords) {
    const std::string path = appendPathComponent(folder.path, name);
    if (!statusOf(path)) {
      rules_.dropMarks(path);
      noteRemoved(path);
    }
  }
}

// Files on a disk that is not connected do not count as deleted.
void Scanner::noteRemoved(const std::string& path) {
  if (knownMounts_.isHidden(path)) {
    return;
  }
  if (!knownMounts_.hidesBelow(path)) {
    store_.setRemoved(path, true, timeOfDay());
    return;
  }
  store_.visitRecords(path, [this](const std::string& file, const BackupRecord& record) {
    if (!record.removed && !knownMounts_.isHidden(file)) {
      store_.setRemoved(file, true, timeOfDay());
    }
    return true;
  });
}

// --- Unreadable files and folders ---

// Nothing is known about the files in a folder that cannot be opened, so none is noted as removed.
void Scanner::couldNotRead(const std::string& path, int error) {
  if (error == ENOENT || error == ENOTDIR || error == ELOOP) {
    if (!statusOf(path)) {
      rules_.dropMarks(path);
      noteRemoved(path);
    }
    return;
  }
  if (rules_.decide(path, true).selected) {
    failures_.note(path, error == ENAMETOOLONG
                             ? std::string(kTooLong)
                             : "The folder cannot be read: " + std::generic_category().message(error) + ".");
  }
}

// Called for a folder that was read. Failures of entries that are gone or no longer selected are removed.
void Scanner::settleFailures(const Folder& folder) {
  failures_.settle(folder.path, [&](const std::string& path, const std::string& name) {
    const auto& folders = folder.entries.folders();
    if (std::binary_search(folders.begin(), folders.end(), std::string_view(name))) {
      return rules_.decide(path, true).mayHold;
    }
    const auto byName = [](const WaitingName& waiting, const std::string& wanted) {
      return waiting.name < wanted;
    };
    const auto waits = std::lower_bound(folder.waiting.begin(), folder.waiting.end(), name, byName);
    return folder.failing.contains(name) || (waits != folder.waiting.end() && waits->name == name);
  });
}

// --- Single files ---

bool Scanner::consider(const std::string& path) {
  const std::optional<struct stat> status = statusOf(path);
  const std::optional<BackupRecord> record = store_.record(path);
  if (!status && record && !record->removed) {
    noteRemoved(path);
  }
  return consider(path, status ? &*status : nullptr, record ? &*record : nullptr);
}

bool Scanner::consider(const std::string& path, const struct stat* status, const BackupRecord* record) {
  if (status != nullptr && record != nullptr && record->removed) {
    store_.setRemoved(path, false, 0);
  }
  const bool isNew =
      status != nullptr && isStorable(*status) && !(record != nullptr && isUnchanged(*status, *record));
  if (isNew && rules_.heeds(Mark::attribute)) {
    rules_.setMark(path, hasNoBackupAttribute(path) ? Mark::attribute : Mark::none);
  }
  const bool isSelected = isNew && rules_.decide(path, false).selected;
  if (isSelected && !delays_.holds(path, fileStateOf(*status))) {
    return pending_.add(path, static_cast<std::uint64_t>(status->st_size), ownerOf(*status));
  }
  pending_.remove(path);
  if (status == nullptr) {
    rules_.setMark(path, Mark::none);
  }
  if (!isSelected && store_.failure(path)) {
    store_.clearFailure(path);
  }
  return false;
}

void Scanner::putOff(const std::string& path, const FileState& state) {
  pending_.remove(path);
  delays_.add(path, state);
}

}  // namespace keldane
