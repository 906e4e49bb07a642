// Places restored files for another user.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "daemon/restore/placing/Placer.h"
#include "daemon/restore/users/UserChild.h"

namespace keldane {

/// Places files with the ids of another user, so that the system itself enforces what that user may do. A
/// process with root's ids cannot do that by checking first and writing later, because a checked item can be
/// changed in between.
///
/// A forked child process, which makes system calls only, has these ids. A thread with the user's ids would
/// share the daemon's memory, descriptors and signals with that user. The child receives only files that
/// belong to the user in the staging, as open descriptors. Used on one thread.
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
    std::function<bool()> mayGoOn;  ///< asked at intervals while the child works; false ends the work
  };
  explicit UserTarget(Options options);
  ~UserTarget() override;

  /// The error number that keeps files from being placed; 0 when there is none.
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
