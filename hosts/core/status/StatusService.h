// Where files stand in the backup, for a file manager that shows it at a glance.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/status/FileStatus.h"
#include "hosts/core/status/StatusCache.h"
#include "hosts/core/status/link/DaemonLink.h"

namespace keldane {

/// Keeps what is known of the files that are shown and asks the daemon on a thread of its own, over a
/// connection of its own. No call here ever waits for the daemon. The thread begins with the first question
/// and looks at the daemon's state as long as a folder is open; a folder is asked about again when the state
/// has changed, and from time to time. When the daemon is away or silent nothing is known, and the next
/// attempts to connect are made at growing distances.
///
/// Made and used on the window's thread. A thread that is stuck in a call when the service goes is left
/// behind; it touches nothing of the host's any more.
class StatusService {
 public:
  /// `socketPath` empty: what the installed bundle names, looked up on the service's thread.
  explicit StatusService(std::string socketPath = {}, const StatusTiming& timing = {});
  ~StatusService();
  StatusService(const StatusService&) = delete;
  StatusService& operator=(const StatusService&) = delete;

  /// Called on the service's thread, or within `lookAfter`, with the paths of files of which something else
  /// is to be shown now.
  using Listener = std::function<void(std::vector<std::string> paths)>;
  void setListener(Listener listener);

  /// What is known of a file that is shown, by its absolute UTF-8 path. Nothing when it has to be asked for;
  /// the listener is told when there is something to show.
  std::optional<FileStatus> statusOf(const std::string& path);
  /// A folder is about to be shown, so that what it has is known when it is asked for.
  void expect(const std::string& folder);
  /// A person gave the daemon a command for these: they are looked at again at once, and some times more
  /// within the next seconds.
  void commandWasGiven(const std::vector<std::string>& paths);

  /// Work on the service's thread, in order. The link is null when the daemon cannot be reached.
  using Task = std::function<void(DaemonLink* link)>;
  void perform(Task task);

  /// To be called every few seconds while a folder is open: what a daemon said that has been silent for long
  /// is not shown any longer.
  void lookAfter();
  /// Tells the listener of all that is shown, for when it is to be shown otherwise.
  void tellAll();
  /// The folders of which files are shown, as far as the service knows.
  std::vector<StatusCache::OpenFolder> openFolders() const;
  /// That nothing of a folder is shown any more.
  void close(const std::string& folder);

 private:
  class Worker;
  std::shared_ptr<Worker> worker_;
};

}  // namespace keldane
