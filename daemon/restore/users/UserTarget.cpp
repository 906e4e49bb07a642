#include "daemon/restore/users/UserTarget.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <thread>

namespace keldane {

namespace {

// Users can stop their own processes, so this waits no longer than a working child needs.
constexpr std::chrono::seconds kMostWait{60};
constexpr std::chrono::seconds kMostWaitAtEnd{5};
constexpr std::uint64_t kLeastBytesPerSecond = std::uint64_t{1} << 20;
constexpr int kPollMilliseconds = 200;

}  // namespace

UserTarget::UserTarget(Options options) : options_(std::move(options)) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    error_ = errno;
    return;
  }
  socket_ = Descriptor(ends[0]);
  const Descriptor childEnd(ends[1]);
  const UserChildSetup setup{.user = options_.user,
                             .group = options_.group,
                             .groups = options_.groups.data(),
                             .groupCount = options_.groups.size(),
                             .root = options_.root.c_str(),
                             .temporaryName = options_.temporaryName.c_str(),
                             .conflict = options_.conflict};
  child_ = fork();
  if (child_ == 0) {
    runUserChild(setup, childEnd.get());
  }
  error_ = child_ < 0 ? errno : receive(kMostWait).error;
}

UserTarget::~UserTarget() {
  if (child_ > 0) {
    socket_ = Descriptor();  // this ends the child, which removes an unfinished copy
    const auto end = std::chrono::steady_clock::now() + kMostWaitAtEnd;
    while (waitpid(child_, nullptr, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        kill(child_, SIGKILL);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
}

int UserTarget::moveFolder(int, const std::string&) { return EXDEV; }

int UserTarget::enter(const StagedFolder& staged, const std::string& name) {
  return ask(UserChildRequest::enter, name, staged.get(), staged.status(), kMostWait).error;
}

int UserTarget::leave(const StagedFolder& staged) {
  const PlaceResult result = ask(UserChildRequest::leave, {}, staged.get(), staged.status(), kMostWait);
  return result.error != 0 ? result.error : result.metadata;
}

PlaceResult UserTarget::place(int from, const std::string& name) {
  struct stat status {};
  if (fstatat(from, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return {PlaceResult::failed, errno};
  }
  // Root made this file. It has this owner only if the storage program restored the stored owner.
  if (status.st_uid != options_.user) {
    return {PlaceResult::failed, EPERM};
  }
  const Descriptor file(
      openat(from, name.c_str(),
             (S_ISREG(status.st_mode) ? O_RDONLY : O_PATH) | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) {
    return {PlaceResult::failed, errno};
  }
  const std::chrono::seconds limit =
      kMostWait + std::chrono::seconds(static_cast<std::uint64_t>(status.st_size) / kLeastBytesPerSecond);
  const PlaceResult result = ask(UserChildRequest::place, name, file.get(), status, limit);
  if (result.kind == PlaceResult::placed) {
    unlinkat(from, name.c_str(), 0);
  }
  return result;
}

PlaceResult UserTarget::ask(UserChildRequest::Kind kind, const std::string& name, int descriptor,
                            const struct stat& status, std::chrono::seconds limit) {
  if (error_ != 0) {
    return {PlaceResult::failed, error_};
  }
  UserChildRequest request;
  request.kind = kind;
  request.again = options_.again;
  request.status = status;
  name.copy(request.name, NAME_MAX);
  if (!sendRequest(socket_.get(), request, descriptor)) {
    error_ = errno;
    return {PlaceResult::failed, error_};
  }
  const PlaceResult result = receive(limit);
  if (result.error == ETIMEDOUT || result.error == ECANCELED || result.error == ECONNRESET) {
    error_ = result.error;  // further answers would no longer match the requests
  }
  return result;
}

PlaceResult UserTarget::receive(std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    pollfd waiting{socket_.get(), POLLIN, 0};
    if (poll(&waiting, 1, kPollMilliseconds) > 0) {
      PlaceResult result;
      const ssize_t got = recv(socket_.get(), &result, sizeof(result), 0);
      return got == static_cast<ssize_t>(sizeof(result)) ? result
                                                         : PlaceResult{PlaceResult::failed, ECONNRESET};
    }
    if (options_.mayGoOn && !options_.mayGoOn()) {
      return {PlaceResult::failed, ECANCELED};
    }
    if (std::chrono::steady_clock::now() > end) {
      return {PlaceResult::failed, ETIMEDOUT};
    }
  }
}

}  // namespace keldane
