// The process that writes restored files for another user, with that user's ids.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <climits>
#include <cstddef>

#include "daemon/restore/placing/PlaceItem.h"

namespace keldane {

/// The user for whom a child works, and the target. The memory belongs to the parent, who keeps it until the
/// child runs.
struct UserChildSetup {
  uid_t user = 0;
  gid_t group = 0;
  const gid_t* groups = nullptr;
  std::size_t groupCount = 0;
  const char* root = nullptr;  ///< the folder that everything is placed in; made when it is not there
  const char* temporaryName = nullptr;
  Conflict conflict = Conflict::keepBoth;
};

/// A request of the parent to its child. For `enter`, `leave` and `place` a descriptor of the staged item is
/// sent along.
struct UserChildRequest {
  enum Kind : int { enter, leave, place } kind = enter;
  bool again = false;     ///< an earlier attempt was cut off
  struct stat status {};  ///< of the staged item
  char name[NAME_MAX + 1] = {};
};

/// Serves requests from a socket until the other end is closed; never returns. It runs in the child of a fork
/// of a process with other threads, whose locks may be held for ever in the child. So it uses system calls
/// and the stack only. It answers each request, and before that its own start, with a PlaceResult.
[[noreturn]] void runUserChild(const UserChildSetup& setup, int socket);

/// Sends a request with a descriptor, or receives one; for both ends.
bool sendRequest(int socket, const UserChildRequest& request, int descriptor);

}  // namespace keldane
