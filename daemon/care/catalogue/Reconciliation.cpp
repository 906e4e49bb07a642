#include "daemon/care/catalogue/Reconciliation.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <vector>

#include "daemon/scan/disk/FileFacts.h"
#include "platform/files/Descriptor.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

constexpr std::size_t kSlice = 2'000;  // the number of versions that are recorded in the catalogue at a time

bool hasTag(const Snapshot& snapshot, std::string_view tag) {
  return std::find(snapshot.tags.begin(), snapshot.tags.end(), tag) != snapshot.tags.end();
}

bool isManifest(const std::string& path) { return std::filesystem::path(path).filename() == kManifestName; }

}  // namespace

std::uint32_t numberFromTags(const Snapshot& snapshot, std::string_view prefix) {
  std::uint32_t number = 0;
  for (const std::string& tag : snapshot.tags) {
    if (tag.starts_with(prefix)) {
      std::from_chars(tag.data() + prefix.size(), tag.data() + tag.size(), number);
    }
  }
  return number;
}

bool isOfInterest(const Snapshot& snapshot, const RepositoryConfig& configuration) {
  const std::uint32_t computer = numberFromTags(snapshot, "computer:");
  return computer == configuration.computerNumber ||
         (computer == configuration.formerComputer &&
          numberFromTags(snapshot, "number:") <= configuration.formerHighest);
}

EngineAnswer Reconciliation::run(const Progress& progress, EngineJob& job) {
  const std::optional<RepositoryConfig> configuration = files_.configuration();
  const bool hasFormer = configuration && configuration->formerComputer != 0;
  std::vector<Snapshot> found;
  if (const EngineAnswer answer = engine_.snapshots(hasFormer, found, job); !answer) {
    return answer;
  }
  if (hasFormer) {
    std::erase_if(found, [&](const Snapshot& snapshot) { return !isOfInterest(snapshot, *configuration); });
  }
  const std::vector<SnapshotRecord> known = store_.snapshots();
  const std::vector<UnknownSnapshot> unknown = compare(known, found);
  const bool withRules =
      known.empty() && (rules_.isEmpty() || store_.value(Store::Table::settings, kTakeRules) == "1");
  return takeAll(unknown, withRules, progress, job);
}

std::vector<Reconciliation::UnknownSnapshot> Reconciliation::compare(const std::vector<SnapshotRecord>& known,
                                                                     const std::vector<Snapshot>& found) {
  std::map<std::uint32_t, std::string> knownIds;
  for (const SnapshotRecord& record : known) {
    knownIds[record.number] = record.id;
  }
  std::map<std::uint32_t, std::string> ids;
  std::vector<UnknownSnapshot> unknown;
  for (const Snapshot& snapshot : found) {
    const std::uint32_t number = numberFromTags(snapshot, "number:");
    if (number == 0) {
      continue;  // somebody made it by hand
    }
    ids[number] = snapshot.id;
    const auto knownId = knownIds.find(number);
    if (knownId == knownIds.end() || !snapshot.id.starts_with(knownId->second)) {
      unknown.push_back({&snapshot, {number, snapshot.id, snapshot.time, hasTag(snapshot, "full"), {}}});
    }
  }
  std::vector<std::uint32_t> gone;
  for (const auto& [number, knownId] : knownIds) {
    const auto id = ids.find(number);
    if (id == ids.end() || !id->second.starts_with(knownId)) {
      gone.push_back(number);
    }
  }
  if (!gone.empty()) {
    systemLog("%llu snapshots are no longer in the repository", std::uint64_t{gone.size()});
    store_.removeSnapshots(gone);
    changed_ = true;
  }
  store_.setSnapshotIds(ids);
  // The newest first, because that is what a person most likely wants back.
  std::sort(unknown.begin(), unknown.end(), [](const UnknownSnapshot& left, const UnknownSnapshot& right) {
    return left.record.number > right.record.number;
  });
  return unknown;
}

EngineAnswer Reconciliation::takeAll(const std::vector<UnknownSnapshot>& unknown, bool withRules,
                                     const Progress& progress, EngineJob& job) {
  for (std::size_t i = 0; i < unknown.size(); ++i) {
    const auto& [snapshot, record] = unknown[i];
    progress(i, unknown.size());
    store_.raiseHighestNumber(record.number);
    const EngineAnswer answer = take(*snapshot, record, withRules, job);
    if (answer.health == Health::damaged) {
      systemLog("Backup %@ cannot be read and is passed over: %@", record.id.substr(0, 8), answer.detail);
      continue;
    }
    if (!answer) {
      return answer;
    }
    if (withRules) {
      store_.setValue(Store::Table::settings, kTakeRules, "0");
    }
    withRules = false;
    changed_ = true;
  }
  return {};
}

EngineAnswer Reconciliation::take(const Snapshot& snapshot, SnapshotRecord record, bool withRules,
                                  EngineJob& job) {
  std::vector<StoredEntry> entries;
  std::string manifest;
  const EngineAnswer listed = engine_.list(
      snapshot.id, {},
      [&](const StoredEntry& entry) {
        if (entry.kind == EntryKind::file && isManifest(entry.path)) {
          manifest = entry.path;
        } else if (entry.kind == EntryKind::file || entry.kind == EntryKind::link) {
          entries.push_back(entry);
        }
      },
      job);
  if (listed.health == Health::damaged) {
    systemLog("Backup %@ is damaged and cannot be read", snapshot.id.substr(0, 8));
    return {};
  }
  if (!listed) {
    return listed;
  }
  ManifestHead head;
  std::map<std::string, ManifestFile> earlier;
  head.date = snapshot.time;
  if (!manifest.empty()) {
    const EngineAnswer answer = manifestOf(snapshot, manifest, head, earlier, job);
    if (!answer) {
      return answer;
    }
  }
  if (withRules) {
    takeRules(head);
  }
  record.time = head.date;
  record.prefix = head.prefix;
  std::vector<Store::RebuiltVersion> versions;
  const auto hand = [&] {
    store_.addRebuilt(record, versions);
    versions.clear();
  };
  for (const StoredEntry& entry : entries) {
    Store::RebuiltVersion version{entry.path.substr(record.prefix.size()),
                                  {entry.size, entry.modified, entry.statusChanged},
                                  record.number,
                                  record.time};
    const auto known = earlier.find(version.path);
    if (known != earlier.end() && (known->second.state == version.state || !record.prefix.empty())) {
      version.version = known->second.version;
      version.date = known->second.date;
      version.state = known->second.state;
    }
    versions.push_back(std::move(version));
    if (versions.size() >= kSlice) {
      hand();
    }
  }
  hand();
  return {};
}

EngineAnswer Reconciliation::manifestOf(const Snapshot& snapshot, const std::string& path, ManifestHead& head,
                                        std::map<std::string, ManifestFile>& files, EngineJob& job) {
  std::filesystem::create_directories(files_.folder().work());
  const std::string copy = files_.folder().work() + "/manifest-" + snapshot.id.substr(0, 16);
  EngineAnswer answer;
  bool isRead = false;
  {
    const Descriptor file(open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
      return {Health::failed, "The daemon's own folder cannot be written."};
    }
    answer = engine_.fetch(snapshot.id, path, file.get(), job);
  }
  if (answer) {
    std::ifstream stream(copy, std::ios::binary);
    const std::optional<ManifestHead> read =
        readManifest(stream, [&](const ManifestFile& file) { files.insert_or_assign(file.path, file); });
    if (read) {
      head = *read;
    }
    isRead = read.has_value();
  }
  if (answer.health == Health::damaged || (answer && !isRead)) {
    // Without a manifest, the versions get the number of the snapshot.
    systemLog("The manifest of backup %@ cannot be read", snapshot.id.substr(0, 8));
    answer = {};
  }
  std::error_code ignored;
  std::filesystem::remove(copy, ignored);
  return answer;
}

void Reconciliation::takeRules(const ManifestHead& head) {
  for (const auto& [path, included] : head.rules) {
    rules_.setRule(path, included);
  }
  for (const auto& [type, toggle] : head.types) {
    rules_.setType(type, toggle);
  }
  for (const auto& [key, value] : head.settings) {
    if (!store_.value(Store::Table::settings, key)) {
      store_.setValue(Store::Table::settings, key, value);
    }
  }
  for (const auto& [key, value] : head.profile) {
    if (store_.value(Store::Table::profile, key)) {
      continue;
    }
    if (key == kIgnoredKey) {
      rules_.setIgnored(value);
    } else {
      store_.setValue(Store::Table::profile, key, value);
    }
  }
}

}  // namespace keldane
