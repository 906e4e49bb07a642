// What the page "Backup" in a file's properties tells, whatever the toolkit.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "hosts/core/status/link/DaemonLink.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

struct StoredVersion {
  std::uint32_t version = 0;
  std::int64_t date = 0;   ///< seconds since the UNIX epoch
  std::uint64_t size = 0;  ///< bytes
  bool operator==(const StoredVersion&) const = default;
};

struct FileDetails {
  /// Name and value, in the order in which they are shown.
  std::vector<std::pair<std::string, std::string>> rows;
  std::vector<StoredVersion> versions;  ///< newest first
  bool isFolder = false;
  bool canBackUp = false;  ///< no rule of the policy bars it
  bool operator==(const FileDetails&) const = default;
};

/// Text of a size in bytes, in the toolkit's manner.
using SizeText = std::function<std::string(std::uint64_t)>;

/// From the answers to `dictionaryForPath:` and `daemonState`, of which each may be absent.
FileDetails fileDetailsOf(const PropertyList& node, const PropertyList& state, const SizeText& sizeText);
/// Asks for both. A null link is a daemon that is away.
FileDetails askForDetails(DaemonLink* link, const std::string& path, const SizeText& sizeText);

/// Includes the item, and prefers a file. Answers a sentence: what the daemon made of it.
std::string backUpNow(DaemonLink* link, const std::string& path, bool isFolder);

/// A restore that was started.
struct StartedRestore {
  std::uint32_t job = 0;  ///< 0: it was not started
  std::string sentence;
};
/// An empty folder is the file's own place, where what is there stays.
StartedRestore startRestore(DaemonLink* link, const std::string& path, std::uint32_t version,
                            const std::string& folder);
/// Empty while it goes on.
std::string restoreResult(DaemonLink* link, std::uint32_t job);

}  // namespace keldane
