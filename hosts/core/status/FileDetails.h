// The contents of the page "Backup" in a file's properties, without a toolkit.
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
  bool canBackUp = false;  ///< no rule of the policy forbids it
  bool operator==(const FileDetails&) const = default;
};

/// Text of a size in bytes, in the toolkit's manner.
using SizeText = std::function<std::string(std::uint64_t)>;

/// Makes the details from the answers to `dictionaryForPath:` and `daemonState`. Each of them may be absent.
FileDetails fileDetailsOf(const PropertyList& node, const PropertyList& state, const SizeText& sizeText);
/// Asks the daemon for both. A null link means that the daemon is away.
FileDetails askForDetails(DaemonLink* link, const std::string& path, const SizeText& sizeText);

/// Includes the item in the backup, and gives a file priority. Returns a sentence that tells the result.
std::string backUpNow(DaemonLink* link, const std::string& path, bool isFolder);

/// A restore that was started.
struct StartedRestore {
  std::uint32_t job = 0;  ///< 0: it was not started
  std::string sentence;
};
/// An empty `folder` stands for the file's own folder. A file that is still there is kept.
StartedRestore startRestore(DaemonLink* link, const std::string& path, std::uint32_t version,
                            const std::string& folder);
/// A sentence that tells the result. Empty while the restore goes on.
std::string restoreResult(DaemonLink* link, std::uint32_t job);

}  // namespace keldane
