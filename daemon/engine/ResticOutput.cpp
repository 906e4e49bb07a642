#include "daemon/engine/ResticOutput.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

namespace keldane {
namespace {

using Json = nlohmann::json;

Json parsed(std::string_view text) { return Json::parse(text, nullptr, false); }

std::string textOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

template <class Number>
Number numberOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_number_integer() ? found->get<Number>() : Number{};
}

/// The mode of the language that the storage program is written in has bits of its own for what is not
/// permission.
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

/// Takes ".249573122" off and answers nanoseconds; 0 when there is no fraction.
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

/// The reason of an `error` message: its own text, or what the system's error number says. Old versions leave
/// most texts out.
std::string reasonOf(const Json& message) {
  const auto error = message.find("error");
  if (error != message.end() && error->is_object()) {
    if (const std::string text = textOf(*error, "message"); !text.empty()) {
      return text;
    }
    if (const int number = numberOf<int>(*error, "Err"); number > 0) {
      return std::generic_category().message(number);
    }
  }
  return "It cannot be read.";
}

constexpr std::string_view kVanished = " does not exist, skipping";

bool isId(std::string_view text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
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
                               *hour * 3600 + *minute * 60 + *second - *zone;
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
  const Json list = parsed(text);
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

std::string idFromConfig(std::string_view text) {
  const Json config = parsed(text);
  return config.is_object() ? textOf(config, "id") : std::string();
}

std::optional<std::uint64_t> sizeFromStats(std::string_view text) {
  const Json stats = parsed(text);
  if (!stats.is_object() || !stats.contains("total_size")) {
    return std::nullopt;
  }
  return numberOf<std::uint64_t>(stats, "total_size");
}

void BackupReader::outputLine(std::string_view line) {
  const Json message = parsed(line);
  if (!message.is_object()) {
    return;
  }
  const std::string type = textOf(message, "message_type");
  if (type == "verbose_status") {
    const std::string action = textOf(message, "action");
    const std::string item = textOf(message, "item");
    const bool isUnchanged = action == "unchanged";
    if (observer_.took && !item.ends_with('/') && (isUnchanged || action == "new" || action == "modified")) {
      observer_.took(item, isUnchanged);
    }
  } else if (type == "status" && observer_.progress) {
    std::string current;
    if (const auto files = message.find("current_files");
        files != message.end() && files->is_array() && !files->empty() && files->front().is_string()) {
      current = files->front().get<std::string>();
    }
    observer_.progress(numberOf<std::uint64_t>(message, "files_done"),
                       numberOf<std::uint64_t>(message, "bytes_done"), current);
  } else if (type == "summary") {
    snapshot_ = textOf(message, "snapshot_id");
    bytesAdded_ = numberOf<std::uint64_t>(message, "data_added");
  } else if (type == "error") {
    errorLine(line);
  }
}

bool BackupReader::errorLine(std::string_view line) {
  if (line.starts_with('/') && line.ends_with(kVanished)) {
    tellUnreadable(std::string(line.substr(0, line.size() - kVanished.size())), "It is gone.");
    return true;
  }
  const Json message = line.starts_with('{') ? parsed(line) : Json();
  if (!message.is_object() || textOf(message, "message_type") != "error") {
    return false;
  }
  if (textOf(message, "during") != "scan") {  // what the scan cannot read is told again when it is archived
    const std::string path = textOf(message, "item");
    tellUnreadable(path, reasonOf(message));
  }
  return true;
}

void BackupReader::tellUnreadable(const std::string& path, const std::string& reason) {
  someUnreadable_ = true;
  if (observer_.couldNotRead) {
    observer_.couldNotRead(path, reason);
  }
}

void CheckReader::errorLine(std::string_view line) {
  constexpr std::string_view kMismatch = "Pack ID does not match, want ";
  constexpr std::string_view kPack = "pack ";
  constexpr std::string_view kRepair = "restic repair packs ";
  if (line.starts_with("error: ") || line.starts_with("Error: ")) {
    line.remove_prefix(7);
  }
  if (const std::size_t found = line.find(kMismatch); found != std::string_view::npos) {
    add(line.substr(found + kMismatch.size(), 64));
  } else if (line.starts_with(kPack) && line.find("not referenced in any index") == std::string_view::npos &&
             line.find("contained in several indexes") == std::string_view::npos) {
    add(line.substr(kPack.size(), 64));
  } else if (const std::size_t repair = line.find(kRepair); repair != std::string_view::npos) {
    for (line.remove_prefix(repair + kRepair.size()); line.size() >= 64;
         line.remove_prefix(std::min(line.size(), std::size_t{65}))) {
      add(line.substr(0, 64));
    }
  }
}

void CheckReader::add(std::string_view pack) {
  if (isId(pack) && std::ranges::find(packs_, pack) == packs_.end()) {
    packs_.emplace_back(pack);
  }
}

std::optional<ItemProblem> problemFromLine(std::string_view line) {
  constexpr std::string_view kBegin = "ignoring error for ";
  static constexpr auto kMetadata = std::to_array<std::string_view>(
      {"chown", "chmod", "utimes", "utimensat", "utime", "xattr", "chtimes", "operation not supported"});
  if (!line.starts_with(kBegin)) {
    return std::nullopt;
  }
  line.remove_prefix(kBegin.size());
  const std::size_t colon = line.find(": ");
  ItemProblem problem;
  problem.path = line.substr(0, colon);
  problem.reason = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 2);
  std::string lower = problem.reason;
  std::ranges::transform(lower, lower.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
  });
  problem.onlyMetadata =
      std::ranges::any_of(kMetadata, [&](std::string_view sign) { return lower.starts_with(sign); });
  return problem;
}

}  // namespace keldane
