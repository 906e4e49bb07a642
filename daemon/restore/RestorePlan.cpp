#include "daemon/restore/RestorePlan.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <vector>

#include "platform/files/Path.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

std::string escapedForFind(const std::string& path) {
  std::string pattern;
  for (const char letter : path) {
    if (std::string_view("*?[]\\").find(letter) != std::string_view::npos) {
      pattern += '\\';
    }
    pattern += letter;
  }
  return pattern;
}

std::uint32_t numberInTag(const Snapshot& snapshot, std::string_view name) {
  std::uint32_t number = 0;
  for (const std::string& tag : snapshot.tags) {
    if (tag.starts_with(name)) {
      std::from_chars(tag.data() + name.size(), tag.data() + tag.size(), number);
    }
  }
  return number;
}

bool hasTag(const Snapshot& snapshot, const char* tag) {
  return std::find(snapshot.tags.begin(), snapshot.tags.end(), tag) != snapshot.tags.end();
}

std::uint32_t sourceFor(const RestoreSource& source, RestorePlan& plan) {
  const auto known = std::find_if(plan.sources.begin(), plan.sources.end(), [&](const RestoreSource& other) {
    return other.snapshot == source.snapshot && other.prefix == source.prefix;
  });
  if (known == plan.sources.end()) {
    plan.sources.push_back(source);
    return static_cast<std::uint32_t>(plan.sources.size() - 1);
  }
  return static_cast<std::uint32_t>(known - plan.sources.begin());
}

// A path may have been a file first and a folder later, or the other way round. The later kind counts.
void dropOlderKind(const std::string& path, std::vector<std::pair<std::string, VersionRecord>>& found) {
  const auto self =
      std::find_if(found.begin(), found.end(), [&](const auto& file) { return file.first == path; });
  if (self == found.end() || found.size() == 1) {
    return;
  }
  const std::uint32_t version = self->second.version;
  const bool isFolder = std::any_of(found.begin(), found.end(), [&](const auto& file) {
    return file.first != path && file.second.version >= version;
  });
  std::erase_if(found, [&](const auto& file) { return (file.first == path) == isFolder; });
}

}  // namespace

std::uint64_t RestorePlan::bytes() const {
  std::uint64_t bytes = 0;
  for (const auto& [path, file] : files) {
    bytes += file.size;
  }
  return bytes;
}

EngineAnswer RestorePlanner::add(const RestoreRequest::Item& item, const std::string& name, double before,
                                 RestorePlan& plan) {
  PlannedItem planned{item.path, name, {}};
  const Bounds bounds{item.version, before};
  const std::size_t problemsBefore = plan.problems.size();
  if (!addFromCatalogue(bounds, planned, plan)) {
    if (const EngineAnswer answer = addFromRepository(bounds, planned, plan); !answer) {
      return answer;
    }
  }
  if (plan.problems.size() == problemsBefore) {
    plan.items.push_back(std::move(planned));
  }
  return {};
}

bool RestorePlanner::addFromCatalogue(const Bounds& bounds, PlannedItem& item, RestorePlan& plan) {
  auto found = store_.versionsBelow(item.path, bounds.number, bounds.before);
  if (found.empty()) {
    return false;
  }
  dropOlderKind(item.path, found);
  std::map<std::string, SnapshotRecord> known;
  for (SnapshotRecord& snapshot : store_.snapshots()) {
    known[snapshot.id] = std::move(snapshot);
  }
  for (auto& [path, version] : found) {
    const auto record = known.find(version.snapshot);
    const std::uint32_t number = record == known.end() ? 0 : record->second.number;
    const bool isFull = record != known.end() && record->second.full;
    const std::uint32_t source = sourceFor({version.snapshot, version.prefix, number, isFull}, plan);
    // The newest full snapshot that holds a file of the folder also holds its links and empty folders.
    if (path != item.path && isFull && (!item.base || plan.sources[*item.base].number < number)) {
      item.base = source;
    }
    plan.files[std::move(path)] = {version.size, source};
  }
  return true;
}

EngineAnswer RestorePlanner::readSnapshots() {
  const std::optional<RepositoryConfig> configuration = RepositoryFiles(folder_).configuration();
  const std::uint32_t former = configuration ? configuration->formerComputer : 0;
  std::vector<Snapshot> found;
  if (const EngineAnswer answer = engine_.snapshots(former != 0, found, job_); !answer) {
    return answer;
  }
  snapshots_.emplace();
  for (const Snapshot& snapshot : found) {
    const std::uint32_t number = numberInTag(snapshot, "number:");
    const std::uint32_t computer = numberInTag(snapshot, "computer:");
    const bool isOurs = former == 0 || computer == configuration->computerNumber ||
                        (computer == former && number <= configuration->formerHighest);
    if (isOurs) {
      (*snapshots_)[snapshot.id] = {number, snapshot.id, snapshot.time, hasTag(snapshot, "full"), {}};
    }
  }
  return {};
}

EngineAnswer RestorePlanner::addFromRepository(const Bounds& bounds, PlannedItem& item, RestorePlan& plan) {
  if (!snapshots_) {
    if (const EngineAnswer answer = readSnapshots(); !answer) {
      return answer;
    }
  }
  std::vector<FoundEntry> found;
  if (const EngineAnswer answer = engine_.find(escapedForFind(item.path), found, job_); !answer) {
    return answer;
  }
  std::vector<std::pair<SnapshotRecord, StoredEntry>> usable;
  for (FoundEntry& entry : found) {
    const auto snapshot = std::find_if(snapshots_->begin(), snapshots_->end(), [&](const auto& known) {
      return known.first.starts_with(entry.snapshot);
    });
    if (snapshot != snapshots_->end() && (bounds.before == 0 || snapshot->second.time <= bounds.before) &&
        (bounds.number == 0 || (snapshot->second.number != 0 && snapshot->second.number <= bounds.number))) {
      usable.emplace_back(snapshot->second, std::move(entry.entry));
    }
  }
  std::stable_sort(usable.begin(), usable.end(), [](const auto& left, const auto& right) {
    return left.first.number > right.first.number;
  });
  if (usable.empty()) {
    plan.problems.push_back("Nothing is stored of " + item.path +
                            (bounds.number == 0 && bounds.before == 0 ? "." : " as it was at that time."));
    return {};
  }
  const EntryKind kind = usable.front().second.kind;
  for (const auto& [snapshot, entry] : usable) {
    if (entry.kind != kind) {
      break;
    }
    const std::uint32_t source = sourceFor({snapshot.id, {}, snapshot.number, snapshot.full}, plan);
    if (kind != EntryKind::folder) {
      plan.files[item.path] = {entry.size, source};
      break;
    }
    if (const EngineAnswer answer = addListed(source, item, plan); !answer) {
      return answer;
    }
    if (snapshot.full) {
      item.base = source;
      break;
    }
  }
  if (kind == EntryKind::folder && !item.base) {
    item.base = sourceFor({usable.front().first.id, {}, 0, false}, plan);
  }
  return {};
}

EngineAnswer RestorePlanner::addListed(std::uint32_t source, PlannedItem& item, RestorePlan& plan) {
  return engine_.list(
      plan.sources[source].snapshot, item.path,
      [&](const StoredEntry& entry) {
        if (entry.kind == EntryKind::file || entry.kind == EntryKind::link) {
          plan.files.try_emplace(entry.path,
                                 WantedFile{entry.size, source});  // an entry of a newer snapshot stays
        }
      },
      job_);
}

EngineAnswer RestorePlanner::keepOnly(uid_t owner, RestorePlan& plan) {
  std::set<std::pair<std::uint32_t, std::size_t>> parts;
  for (const auto& [path, file] : plan.files) {
    for (std::size_t i = 0; i < plan.items.size(); ++i) {
      if (isAtOrBelow(path, plan.items[i].path)) {
        parts.emplace(file.source, i);
      }
    }
  }
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    if (plan.items[i].base) {
      parts.emplace(*plan.items[i].base, i);
    }
  }
  for (const auto& [source, item] : parts) {
    if (const EngineAnswer answer = readOwners(source, plan.items[item], owner, plan); !answer) {
      return answer;
    }
  }
  // A file that was not listed as this user's is left out, whatever the reason.
  plan.leavesOutForeign =
      std::erase_if(plan.files, [](auto& file) { return file.second.state != WantedFile::staged; }) > 0 ||
      plan.leavesOutForeign;
  for (auto& [path, file] : plan.files) {
    file.state = WantedFile::missing;
  }
  return {};
}

// Marks the files of that owner as staged for now. A folder that holds a file of another user is not taken as
// a whole.
EngineAnswer RestorePlanner::readOwners(std::uint32_t source, const PlannedItem& item, uid_t owner,
                                        RestorePlan& plan) {
  const RestoreSource& from = plan.sources[source];
  bool isAllTheirs = true;
  // The engine reports names that are not UTF-8 with replacement characters, so several names may look alike.
  // They count as this user's when all files that look like them are.
  std::map<std::string, std::vector<WantedFile*>> lookAlikes;
  std::map<std::string, bool> areTheirs;
  for (auto& [path, file] : plan.files) {
    if (file.source == source && !isValidUtf8(path)) {
      lookAlikes[validUtf8(path)].push_back(&file);
    }
  }
  const EngineAnswer answer = engine_.list(
      from.snapshot, from.prefix + item.path,
      [&](const StoredEntry& entry) {
        const std::string whole = from.prefix + item.path;
        if (!isAtOrBelow(entry.path, whole)) {
          return;  // folders on the way
        }
        isAllTheirs = isAllTheirs && entry.owner == owner;
        const std::string path = entry.path.substr(from.prefix.size());
        const auto file = plan.files.find(path);
        if (lookAlikes.contains(path)) {
          areTheirs.try_emplace(path, true).first->second &= entry.owner == owner;
        }
        if (entry.owner == owner && file != plan.files.end() && file->second.source == source) {
          file->second.state = WantedFile::staged;
        }
      },
      job_);
  for (const auto& [path, isTheirs] : areTheirs) {
    for (WantedFile* file : lookAlikes[path]) {
      file->state = isTheirs ? WantedFile::staged : file->state;
    }
  }
  for (PlannedItem& planned : plan.items) {
    if (planned.path == item.path && planned.base == source && !isAllTheirs) {
      planned.base.reset();
      plan.leavesOutForeign = true;
    }
  }
  return answer;
}

}  // namespace keldane
