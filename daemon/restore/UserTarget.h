// Placing restored files for another user.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "daemon/restore/Placer.h"
#include "daemon/restore/UserChild.h"

namespace keldane {

/// Places files with the ids of another user, so that the system itself keeps them to what that user may do.
/// A process with root's ids cannot do that by looking first and writing then: what it looked at can be
/// changed in between.
///
/// The ids are those of a child process, which is forked and keeps to system calls. A thread with ids of its
/// own would share the daemon's memory, descriptors and signals with whoever that user is. Only files that
/// have the user for an owner in the staging are given to the child, as open descriptors. One thread.
class UserTarget : public PlaceTarget {
 public:
  struct Options {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;
    std::string root;
    std::string temporaryName;
    Conflict conflict = Conflict::keepBoth;
    bool again = false;
    std::function<bool()> mayGoOn;  ///< asked now and then while the child works; false ends it
  };
  explicit UserTarget(Options options);
  ~UserTarget() override;

  /// Why nothing can be placed; 0 when it can.
  int error() const { return error_; }

  int moveFolder(int from, const std::string& name) override;
  int enter(const StagedFolder& staged, const std::string& name) override;
  int leave(const StagedFolder& staged) override;
  PlaceResult place(int from, const std::string& name) override;

 private:
  PlaceResult ask(UserChildRequest::Kind kind, const std::string& name, int descriptor,
                  const struct stat& status, std::chrono::seconds limit);
  PlaceResult receive(std::chrono::seconds limit);

  const Options options_;
  Descriptor socket_;
  pid_t child_ = -1;
  int error_ = 0;
};

}  // namespace keldane
