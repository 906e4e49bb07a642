// Finds what is to be stored by looking at the disk.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "daemon/backup/FileFacts.h"
#include "daemon/backup/PendingFiles.h"
#include "daemon/rules/RuleBook.h"
#include "daemon/store/Store.h"

namespace keldane {

/// Compares the disk with the rules and the catalogue, keeps the list of pending files, and notes in the
/// catalogue which stored files are no longer there. Any thread; scans run one at a time.
class Scanner {
 public:
  Scanner(Store& store, const RuleBook& rules, PendingFiles& pending)
      : store_(store), rules_(rules), pending_(pending) {}

  /// Looks at a place and everything below it, links not followed. What cannot be read is passed over. Ends
  /// early when `cancelled` becomes true. Answers whether a file has come to wait that did not wait before.
  bool scan(const std::string& place, const std::atomic<bool>& cancelled);
  /// Looks at one path. Answers whether it has come to wait.
  bool consider(const std::string& path);

  /// Notes that a file in this state could not be stored: it waits no longer, and is tried again when it has
  /// changed or an hour has gone by.
  void putOff(const std::string& path, const FileState& state);
  /// A person asked for it: everything that was put off is tried again.
  void forgetDelays();

 private:
  struct Delay {
    FileState state;
    std::chrono::steady_clock::time_point until;
  };

  void scanFolder(const std::string& folder, std::vector<std::string>& below, bool& news);
  bool consider(const std::string& path, const struct stat* status, const BackupRecord* record);
  bool isPutOff(const std::string& path, const FileState& state);

  Store& store_;
  const RuleBook& rules_;
  PendingFiles& pending_;
  std::mutex delaysMutex_;
  std::map<std::string, Delay> delays_;  // guarded by delaysMutex_
};

}  // namespace keldane
