// The backup status of files, for a file manager that shows it on their icons.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/status/FileStatus.h"
#include "hosts/core/status/cache/StatusCache.h"
#include "hosts/core/status/link/DaemonLink.h"

namespace keldane {

/// Keeps the status of the files that are shown. It asks the daemon on a thread of its own, over a connection
/// of its own, so no call here ever waits for the daemon. The thread starts with the first question and polls
/// the daemon's state as long as a folder is open. A folder is asked about again when the state has changed,
/// and from time to time. When the daemon is away or silent, nothing is known, and the pauses between the
/// attempts to connect grow.
///
/// The service is made and used on the window's thread. When its own thread is stuck in a call while the
/// service is destroyed, that thread is left behind. It takes no further task, does not call the listener and
/// touches nothing of the host, except what a task that it has taken holds itself.
class StatusService {
 public:
  /// An empty `socketPath` stands for the path that the installed bundle names. It is looked up on the
  /// service's thread.
  explicit StatusService(std::string socketPath = {}, const StatusTiming& timing = {});
  ~StatusService();
  StatusService(const StatusService&) = delete;
  StatusService& operator=(const StatusService&) = delete;

  /// The listener is called with the paths of files whose emblem may have changed. It is called on the
  /// service's thread, or within `lookAfter` and `tellAll`, and never by two threads at once. It must return
  /// soon and is meant to hand the paths over to the window's thread. It must not wait for that thread or for
  /// the daemon, must not call `setListener`, `lookAfter` or `tellAll`, and must not destroy the service.
  using Listener = std::function<void(std::vector<std::string> paths)>;
  /// Replaces the listener. An empty function means that nobody is told. After this function or the
  /// destructor has returned, no call of the former listener is under way, and none begins. Both wait for a
  /// call that is under way, and both destroy the former listener on the calling thread.
  void setListener(Listener listener);

  /// The status of a file that is shown, by its absolute UTF-8 path. Absent when the daemon must be asked
  /// first; the listener is called when there is something to show.
  std::optional<FileStatus> statusOf(const std::string& path);
  /// Tells that a folder is about to be shown, so that its files are known when their status is asked for.
  void expect(const std::string& folder);
  /// Tells that the user gave the daemon a command for these files. They are asked about again at once and
  /// several times within the next seconds.
  void commandWasGiven(const std::vector<std::string>& paths);

  /// A task for the service's thread. Tasks run in order. The link is null when the daemon cannot be reached.
  /// The destructor does not wait for a task that the thread has taken. So a task uses only what it holds
  /// itself, or what outlives the thread.
  using Task = std::function<void(DaemonLink* link)>;
  void perform(Task task);

  /// To be called every few seconds while a folder is open. When the daemon has been silent for long, its
  /// former answers are not shown any longer.
  void lookAfter();
  /// Tells the listener of all files that are shown, after the way in which they are shown has changed.
  void tellAll();
  /// The folders of which files are shown, as far as the service knows.
  std::vector<StatusCache::OpenFolder> openFolders() const;
  /// Tells that nothing of a folder is shown any more.
  void close(const std::string& folder);

 private:
  class Worker;
  std::shared_ptr<Worker> worker_;
};

}  // namespace keldane
