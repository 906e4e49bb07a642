#include "daemon/engine/restic/output/ResticOutput.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <set>
#include <utility>

#include "daemon/engine/restic/output/JsonFields.h"

namespace keldane {
namespace {

/// The storage program prints modes in the form of its programming language, which has other bits for setuid,
/// setgid and sticky.
mode_t permissionsOf(std::uint32_t mode) {
  constexpr std::uint32_t kSetUser = 1U << 23;
  constexpr std::uint32_t kSetGroup = 1U << 22;
  constexpr std::uint32_t kSticky = 1U << 20;
  return (mode & 0777U) | ((mode & kSetUser) != 0 ? 04000U : 0U) | ((mode & kSetGroup) != 0 ? 02000U : 0U) |
         ((mode & kSticky) != 0 ? 01000U : 0U);
}

EntryKind kindOf(const std::string& type) {
  return type == "file"      ? EntryKind::file
         : type == "dir"     ? EntryKind::folder
         : type == "symlink" ? EntryKind::link
                             : EntryKind::other;
}

StoredEntry entryFromNode(const Json& node) {
  StoredEntry entry;
  entry.path = textOf(node, "path");
  entry.kind = kindOf(textOf(node, "type"));
  entry.size = numberOf<std::uint64_t>(node, "size");
  entry.modified = timeFromText(textOf(node, "mtime")).value_or(0);
  entry.statusChanged = timeFromText(textOf(node, "ctime")).value_or(0);
  entry.owner = numberOf<uid_t>(node, "uid");
  entry.group = numberOf<gid_t>(node, "gid");
  entry.mode = permissionsOf(numberOf<std::uint32_t>(node, "mode"));
  return entry;
}

std::optional<int> takeNumber(std::string_view& text, std::size_t digits, char after) {
  int number = 0;
  const std::size_t taken = digits + (after != '\0' ? 1 : 0);
  if (text.size() < taken || (after != '\0' && text[digits] != after) ||
      std::from_chars(text.data(), text.data() + digits, number).ptr != text.data() + digits) {
    return std::nullopt;
  }
  text.remove_prefix(taken);
  return number;
}

/// Removes a fraction such as ".249573122" and returns it in nanoseconds; 0 when there is no fraction.
std::int64_t takeFraction(std::string_view& text) {
  std::int64_t fraction = 0;
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    for (int digit = 0; digit < 9 || (!text.empty() && text[0] >= '0' && text[0] <= '9'); ++digit) {
      const bool isDigit = !text.empty() && text[0] >= '0' && text[0] <= '9';
      if (digit < 9) {
        fraction = fraction * 10 + (isDigit ? text[0] - '0' : 0);
      }
      text.remove_prefix(isDigit ? 1 : 0);
    }
  }
  return fraction;
}

/// Seconds east of Greenwich: "Z", "+01:00".
std::optional<int> takeZone(std::string_view& text) {
  if (text == "Z") {
    text = {};
    return 0;
  }
  const bool isWest = text.starts_with('-');
  if (!isWest && !text.starts_with('+')) {
    return std::nullopt;
  }
  text.remove_prefix(1);
  const std::optional<int> hours = takeNumber(text, 2, ':');
  const std::optional<int> minutes = hours ? takeNumber(text, 2, '\0') : std::nullopt;
  return minutes ? std::optional((*hours * 60 + *minutes) * (isWest ? -60 : 60)) : std::nullopt;
}

/// The text without the two lines that the storage program prints in the middle of its JSON for each list of
/// names that it cannot read.
std::string withoutComplaints(std::string text) {
  constexpr std::string_view kBegin = "Unable to load tree ";
  constexpr std::string_view kNext = "\n ... which belongs to snapshot ";
  constexpr std::size_t kId = 64;
  for (std::size_t found = text.find(kBegin); found != std::string::npos;
       found = text.find(kBegin, found + 1)) {
    const std::size_t next = found + kBegin.size() + kId;
    if (next < text.size() && std::string_view(text).substr(next).starts_with(kNext)) {
      text.erase(found, text.find('\n', next + 1) - found);
    }
  }
  return text;
}

}  // namespace

std::optional<std::int64_t> timeFromText(std::string_view text) {
  const std::optional<int> year = takeNumber(text, 4, '-');
  const std::optional<int> month = year ? takeNumber(text, 2, '-') : std::nullopt;
  const std::optional<int> day = month ? takeNumber(text, 2, 'T') : std::nullopt;
  const std::optional<int> hour = day ? takeNumber(text, 2, ':') : std::nullopt;
  const std::optional<int> minute = hour ? takeNumber(text, 2, ':') : std::nullopt;
  const std::optional<int> second = minute ? takeNumber(text, 2, '\0') : std::nullopt;
  if (!second) {
    return std::nullopt;
  }
  const std::int64_t fraction = takeFraction(text);
  const std::optional<int> zone = takeZone(text);
  const std::chrono::year_month_day date(std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day)));
  if (!zone || !text.empty() || !date.ok()) {
    return std::nullopt;
  }
  const std::int64_t seconds = std::int64_t{std::chrono::sys_days(date).time_since_epoch().count()} * 86400 +
                               std::int64_t{*hour} * 3600 + std::int64_t{*minute} * 60 + *second - *zone;
  constexpr std::int64_t kBillion = 1'000'000'000;
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  if (seconds >= kMost / kBillion) {
    return kMost;
  }
  if (seconds <= -(kMost / kBillion)) {
    return std::numeric_limits<std::int64_t>::min();
  }
  return seconds * kBillion + fraction;
}

std::optional<StoredEntry> entryFromLine(std::string_view line) {
  const Json node = parsed(line);
  const bool isNode =
      node.is_object() && (textOf(node, "struct_type") == "node" || textOf(node, "message_type") == "node");
  return isNode ? std::optional(entryFromNode(node)) : std::nullopt;
}

std::optional<std::vector<Snapshot>> snapshotsFromText(std::string_view text) {
  const Json list = parsed(text);
  std::vector<Snapshot> snapshots;
  if (!list.is_array() && !list.is_null()) {
    return std::nullopt;
  }
  for (const Json& item : list) {
    if (!item.is_object()) {
      return std::nullopt;
    }
    Snapshot snapshot;
    snapshot.id = textOf(item, "id");
    snapshot.time = static_cast<double>(timeFromText(textOf(item, "time")).value_or(0)) / 1e9;
    snapshot.host = textOf(item, "hostname");
    snapshot.tree = textOf(item, "tree");
    if (const auto tags = item.find("tags"); tags != item.end() && tags->is_array()) {
      for (const Json& tag : *tags) {
        snapshot.tags.push_back(tag.is_string() ? tag.get<std::string>() : std::string());
      }
    }
    snapshots.push_back(std::move(snapshot));
  }
  std::ranges::stable_sort(snapshots, {}, &Snapshot::time);
  return snapshots;
}

std::optional<std::vector<FoundEntry>> matchesFromText(std::string_view text) {
  const Json list = parsed(text);
  std::vector<FoundEntry> found;
  if (!list.is_array()) {
    return std::nullopt;
  }
  for (const Json& item : list) {
    const std::string snapshot = item.is_object() ? textOf(item, "snapshot") : std::string();
    const auto matches = item.is_object() ? item.find("matches") : item.end();
    if (!item.is_object() || matches == item.end()) {
      continue;
    }
    for (const Json& node : *matches) {
      if (node.is_object()) {
        found.push_back({snapshot, entryFromNode(node)});
      }
    }
  }
  return found;
}

std::optional<std::vector<FoundEntry>> packUsersFromText(std::string_view text) {
  const Json list = parsed(withoutComplaints(std::string(text)));
  std::vector<FoundEntry> found;
  std::set<std::pair<std::string, std::string>> seen;
  if (!list.is_array() && !list.is_null()) {
    return std::nullopt;
  }
  for (const Json& item : list) {
    if (!item.is_object()) {
      continue;
    }
    FoundEntry entry;
    entry.snapshot = textOf(item, "snapshot");
    entry.entry.path = textOf(item, "path");
    entry.entry.kind = textOf(item, "object_type") == "tree" ? EntryKind::folder : EntryKind::file;
    if (seen.insert({entry.snapshot, entry.entry.path}).second) {
      found.push_back(std::move(entry));
    }
  }
  return found;
}

void addBlobs(std::string_view text, const std::vector<std::string>& packs, PackBlobs& blobs) {
  const Json index = parsed(text);
  if (!index.is_object() || !index.contains("packs")) {
    return;
  }
  for (const Json& pack : index["packs"]) {
    if (!pack.is_object() || !pack.contains("blobs") ||
        std::ranges::find(packs, textOf(pack, "id")) == packs.end()) {
      continue;
    }
    for (const Json& blob : pack["blobs"]) {
      if (blob.is_object()) {
        (textOf(blob, "type") == "tree" ? blobs.trees : blobs.data).push_back(textOf(blob, "id"));
      }
    }
  }
}

SnapshotTrees topTreesFromText(std::string_view text) {
  SnapshotTrees trees;
  for (const Json& snapshot : parsed(text)) {
    if (snapshot.is_object()) {
      trees.emplace_back(textOf(snapshot, "id"), textOf(snapshot, "tree"));
    }
  }
  return trees;
}

std::string idFromConfig(std::string_view text) {
  const Json config = parsed(text);
  return config.is_object() ? textOf(config, "id") : std::string();
}

std::optional<std::vector<KeyRecord>> keysFromText(std::string_view text) {
  const Json list = parsed(text);
  if (!list.is_array()) {
    return std::nullopt;
  }
  std::vector<KeyRecord> keys;
  for (const Json& item : list) {
    if (!item.is_object() || textOf(item, "id").empty()) {
      return std::nullopt;
    }
    const auto current = item.find("current");
    keys.push_back(
        {textOf(item, "id"), current != item.end() && current->is_boolean() && current->get<bool>()});
  }
  return keys;
}

std::optional<std::uint64_t> sizeFromStats(std::string_view text) {
  const Json stats = parsed(text);
  if (!stats.is_object() || !stats.contains("total_size")) {
    return std::nullopt;
  }
  return numberOf<std::uint64_t>(stats, "total_size");
}

}  // namespace keldane
