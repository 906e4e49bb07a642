#include "daemon/restore/users/UserChild.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "daemon/restore/placing/CopyItem.h"

namespace keldane {

namespace {

constexpr int kChildSocket = 3;
// The greatest depth that a path can have. It is twice the number of descriptors that a process usually may
// have.
constexpr std::size_t kMostLevels = PATH_MAX / 2;

void closeAllFrom(unsigned first) {
  if (syscall(SYS_close_range, first, ~0U, 0) != 0) {
    for (unsigned number = first; number < 65536; ++number) {
      close(static_cast<int>(number));
    }
  }
}

// These are raw system calls. The functions of the C library would wait for the parent's other threads, which
// this process does not have.
bool becomeUser(const UserChildSetup& setup) {
  if (syscall(SYS_setgroups, setup.groupCount, setup.groups) != 0 ||
      syscall(SYS_setresgid, setup.group, setup.group, setup.group) != 0 ||
      syscall(SYS_setresuid, setup.user, setup.user, setup.user) != 0) {
    return false;
  }
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && syscall(SYS_capset, &header, none) == 0 &&
         prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 && geteuid() == setup.user &&
         getegid() == setup.group;
}

/// Opens the target, whose path may contain links, and makes the missing folders.
int openRoot(const char* path) {
  char part[PATH_MAX];
  const std::size_t length = std::strlen(path);
  if (length >= sizeof(part)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  for (std::size_t i = 1; i <= length; ++i) {
    if (i == length || path[i] == '/') {
      std::memcpy(part, path, i);
      part[i] = 0;
      mkdirat(AT_FDCWD, part, S_IRWXU);
    }
  }
  return openat(AT_FDCWD, path, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

/// The folders from the root down to the current one. They are in memory of the child only.
struct Levels {
  int folders[kMostLevels];
  bool isMade[kMostLevels];
  std::size_t depth = 1;
};

PlaceResult enterLevel(Levels& levels, const char* name) {
  if (levels.depth == kMostLevels) {
    return {PlaceResult::failed, ENAMETOOLONG};
  }
  const int above = levels.folders[levels.depth - 1];
  const bool isMade = mkdirat(above, name, S_IRWXU) == 0;
  if (!isMade && errno != EEXIST && errno != EACCES && errno != EROFS) {
    return {PlaceResult::failed, errno};
  }
  const int reason = errno;
  const int opened = openFolderIn(above, name, isMade ? O_RDONLY : O_PATH);
  if (opened < 0) {
    return {PlaceResult::failed, errno == ENOENT && !isMade ? reason : errno};
  }
  levels.folders[levels.depth] = opened;
  levels.isMade[levels.depth] = isMade;
  ++levels.depth;
  return {};
}

PlaceResult leaveLevel(Levels& levels, uid_t user, int staged, const struct stat& status) {
  if (levels.depth == 1) {
    return {PlaceResult::failed, EINVAL};
  }
  --levels.depth;
  PlaceResult result;
  // A folder of another user in the backup does not give its mode to a folder of this user.
  if (levels.isMade[levels.depth] && status.st_uid == user) {
    result.metadata = copyMetadata(staged, status, levels.folders[levels.depth], CopyAs::stranger);
  }
  close(levels.folders[levels.depth]);
  return result;
}

/// Whether the parent is still there. It ends the work by closing its end of the socket.
bool isParentThere(const void*) {
  pollfd end{kChildSocket, POLLRDHUP, 0};
  return poll(&end, 1, 0) <= 0;
}

bool receiveRequest(int socket, UserChildRequest& request, int& descriptor) {
  descriptor = -1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  iovec part{&request, sizeof(request)};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  ssize_t got = 0;
  do {
    got = recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  } while (got < 0 && errno == EINTR);
  const cmsghdr* header = got > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
  if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
    std::memcpy(&descriptor, CMSG_DATA(header), sizeof(descriptor));
  }
  return got == static_cast<ssize_t>(sizeof(request));
}

PlaceResult serveRequest(const UserChildSetup& setup, Levels& levels, const UserChildRequest& request,
                         int descriptor) {
  switch (request.kind) {
    case UserChildRequest::enter:
      return enterLevel(levels, request.name);
    case UserChildRequest::leave:
      return leaveLevel(levels, setup.user, descriptor, request.status);
    case UserChildRequest::place:
      return copyItem(descriptor, levels.folders[levels.depth - 1], setup.temporaryName, request.name,
                      setup.conflict, CopyAs::stranger, request.again, {isParentThere, nullptr});
  }
  return {PlaceResult::failed, EINVAL};
}

void answer(int socket, const PlaceResult& result) {
  if (send(socket, &result, sizeof(result), MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof(result))) {
    _exit(1);
  }
}

}  // namespace

bool sendRequest(int socket, const UserChildRequest& request, int descriptor) {
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  iovec part{const_cast<UserChildRequest*>(&request), sizeof(request)};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  cmsghdr* header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof(descriptor));
  return sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof(request));
}

void runUserChild(const UserChildSetup& setup, int socket) {
  // No descriptor of the daemon may be within reach of a process of another user.
  if (dup2(socket, kChildSocket) < 0) {
    _exit(1);
  }
  closeAllFrom(kChildSocket + 1);
  umask(S_IRWXG | S_IRWXO);
  if (!becomeUser(setup)) {
    answer(kChildSocket, {PlaceResult::failed, EPERM});
    _exit(1);
  }
  Levels levels;
  levels.isMade[0] = false;
  levels.folders[0] = openRoot(setup.root);
  answer(kChildSocket, levels.folders[0] >= 0 ? PlaceResult() : PlaceResult{PlaceResult::failed, errno});
  UserChildRequest request;
  int descriptor = -1;
  while (receiveRequest(kChildSocket, request, descriptor)) {
    request.name[NAME_MAX] = 0;
    answer(kChildSocket, serveRequest(setup, levels, request, descriptor));
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
  _exit(0);
}

}  // namespace keldane
