#include "daemon/scan/disk/KnownMounts.h"

#include <sstream>

#include "daemon/engine/ExternalDisk.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr const char* kKey = "mountPoints";
constexpr std::string_view kNoUuid = "-";

// A line for each: the UUID, a space, and the path, in which "%" and a line feed read as "%25" and "%0A".
std::string escaped(const std::string& path) {
  std::string text;
  for (const char letter : path) {
    text += letter == '%' ? "%25" : letter == '\n' ? "%0A" : std::string(1, letter);
  }
  return text;
}

std::string unescaped(const std::string& text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string code = text.substr(i, 3);
    const bool isCode = code == "%25" || code == "%0A";
    path += !isCode ? text[i] : code == "%25" ? '%' : '\n';
    i += isCode ? 2 : 0;
  }
  return path;
}

}  // namespace

// An absent mount without stored files is forgotten.
KnownMounts::KnownMounts(Store& store) : store_(store), table_(MountTable::read()) {
  std::istringstream lines(store.value(Store::Table::settings, kKey).value_or(""));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t space = line.find(' ');
    const std::string point = space == std::string::npos ? std::string() : unescaped(line.substr(space + 1));
    if (point.starts_with('/') && (table_.isMountPoint(point) || store.holdsFiles(point))) {
      known_[point] = line.substr(0, space);
    }
  }
}

MountTable KnownMounts::refresh() {
  MountTable table = MountTable::read();
  const ScopedLock guard(mutex_);
  table_ = table;
  return table;
}

void KnownMounts::remember(const std::string& path) {
  const ScopedLock guard(mutex_);
  const std::string point = table_.pointOf(path);
  if (point.size() > 1 && !known_.contains(point)) {
    const std::string uuid = uuidAt(point);
    known_[point] = uuid.empty() ? std::string(kNoUuid) : uuid;
    save();
  }
}

void KnownMounts::save() {
  std::string text;
  for (const auto& [point, uuid] : known_) {
    text.append(uuid).append(" ").append(escaped(point)).append("\n");
  }
  store_.setValue(Store::Table::settings, kKey, text);
}

// The search for a UUID goes through all devices, so the answer is kept as long as the mount is the same.
std::string KnownMounts::uuidAt(const std::string& point) const {
  const Mount* mount = table_.at(point);
  if (mount == nullptr) {
    return {};
  }
  Identity& identity = identities_[point];
  if (identity.mount != mount->id) {
    identity = {mount->id, fileSystemUuidOf(point)};
  }
  return identity.uuid;
}

bool KnownMounts::isAbsent(const std::string& point, const std::string& uuid) const {
  if (!table_.isMountPoint(point)) {
    return true;
  }
  const std::string now = uuid == kNoUuid ? std::string() : uuidAt(point);
  return !now.empty() && now != uuid;
}

bool KnownMounts::isHidden(const std::string& path) const {
  const ScopedLock guard(mutex_);
  bool isFresh = false;
  for (std::string_view above = path; above.size() > 1; above = parentPath(above)) {
    const auto known = known_.find(above);
    if (known == known_.end()) {
      continue;
    }
    if (!isFresh) {
      table_ = MountTable::read();
      isFresh = true;
    }
    if (isAbsent(known->first, known->second)) {
      return true;
    }
  }
  return false;
}

bool KnownMounts::hidesBelow(const std::string& path) const {
  const ScopedLock guard(mutex_);
  const std::string below = path == "/" ? path : path + '/';
  auto known = known_.lower_bound(below);
  if (known != known_.end() && known->first.starts_with(below)) {
    table_ = MountTable::read();
  }
  for (; known != known_.end() && known->first.starts_with(below); ++known) {
    if (isAbsent(known->first, known->second)) {
      return true;
    }
  }
  return false;
}

}  // namespace keldane
