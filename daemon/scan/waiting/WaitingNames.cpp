#include "daemon/scan/waiting/WaitingNames.h"

#include <algorithm>
#include <utility>

namespace keldane {

namespace {

// The names that may be removed before their memory is freed.
constexpr std::size_t kFewGone = 16;

}  // namespace

std::vector<WaitingNames::Entry>::const_iterator WaitingNames::lowerBound(std::string_view name) const {
  return std::lower_bound(
      entries_.begin(), entries_.end(), name,
      [this](const Entry& entry, std::string_view wanted) { return nameOf(entry) < wanted; });
}

bool WaitingNames::add(const WaitingName& file, std::uint32_t scan) {
  const std::uint64_t bytes = std::min(file.bytes, kGone - 1);
  const auto found = lowerBound(file.name);
  if (found != entries_.end() && nameOf(*found) == file.name) {
    Entry& entry = entries_[static_cast<std::size_t>(found - entries_.begin())];
    const bool isNew = entry.bytes == kGone;
    if (isNew) {
      --gone_;
    } else {
      bytes_.take(entry.bytes);
    }
    entry.bytes = bytes;
    entry.scan = scan;
    entry.owner = file.owner;
    bytes_.add(bytes);
    return isNew;
  }
  entries_.insert(found, {bytes, static_cast<std::uint32_t>(names_.size()), scan, file.owner});
  names_.append(file.name).push_back('\0');
  bytes_.add(bytes);
  return true;
}

void WaitingNames::remove(std::string_view name, std::uint32_t scan) {
  removeIfOlder(name, std::numeric_limits<std::uint32_t>::max(), scan);
}

bool WaitingNames::removeIfOlder(std::string_view name, std::uint32_t since, std::uint32_t scan) {
  const auto found = lowerBound(name);
  if (found == entries_.end() || nameOf(*found) != name || found->bytes == kGone) {
    return true;
  }
  if (found->scan >= since) {
    return false;
  }
  Entry& entry = entries_[static_cast<std::size_t>(found - entries_.begin())];
  bytes_.take(std::exchange(entry.bytes, kGone));
  entry.scan = scan;
  ++gone_;
  if (gone_ > files() + kFewGone) {
    compact();
  }
  return true;
}

std::optional<WaitingName> WaitingNames::find(std::string_view name) const {
  const auto found = lowerBound(name);
  return found != entries_.end() && nameOf(*found) == name && found->bytes != kGone
             ? std::optional<WaitingName>({name, found->bytes, found->owner})
             : std::nullopt;
}

// All names before it are in their order already.
void WaitingNames::append(const WaitingName& file, std::uint32_t scan) {
  const std::uint64_t bytes = std::min(file.bytes, kGone - 1);
  entries_.push_back({bytes, static_cast<std::uint32_t>(names_.size()), scan, file.owner});
  names_.append(file.name).push_back('\0');
  bytes_.add(bytes);
}

bool WaitingNames::replace(const std::vector<WaitingName>& files, std::uint32_t scan) {
  const WaitingNames before = std::exchange(*this, WaitingNames());
  scan_ = scan;
  std::size_t room = 0;
  for (const WaitingName& file : files) {
    room += file.name.size() + 1;
  }
  entries_.reserve(files.size());
  names_.reserve(room);
  bool isNews = false;
  auto old = before.entries_.begin();
  const auto end = before.entries_.end();
  // Names that were added after the scan had begun.
  const auto keepUpTo = [&](const WaitingName* file) {
    for (; old != end && (file == nullptr || before.nameOf(*old) < file->name); ++old) {
      if (old->scan >= scan && old->bytes != kGone) {
        append(before.fileOf(*old), old->scan);
      }
    }
  };
  for (const WaitingName& file : files) {
    keepUpTo(&file);
    const bool isKnown = old != end && before.nameOf(*old) == file.name;
    const bool isNewer = isKnown && old->scan >= scan;
    if (isNewer && old->bytes != kGone) {
      append(before.fileOf(*old), old->scan);
    } else if (!isNewer) {
      append(file, scan);
      isNews = isNews || !isKnown || old->bytes == kGone;
    }
    old += isKnown ? 1 : 0;
  }
  keepUpTo(nullptr);
  return isNews;
}

void WaitingNames::removeOlder(std::uint32_t scan) {
  const WaitingNames before = std::exchange(*this, WaitingNames());
  scan_ = before.scan_;
  for (const Entry& entry : before.entries_) {
    if (entry.bytes != kGone && entry.scan >= scan) {
      append(before.fileOf(entry), entry.scan);
    }
  }
}

void WaitingNames::compact() {
  const WaitingNames before = std::exchange(*this, WaitingNames());
  scan_ = before.scan_;
  for (const Entry& entry : before.entries_) {
    if (entry.bytes != kGone) {
      append(before.fileOf(entry), entry.scan);
    }
  }
}

}  // namespace keldane
