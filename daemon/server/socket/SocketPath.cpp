#include "daemon/server/socket/SocketPath.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

#include "Common/transport/KeldSocket.h"
#include "daemon/server/socket/FolderSafety.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

// A daemon that was killed while it started a program leaves a forked copy of itself for a moment, which
// holds the lock.
constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kInterval = std::chrono::milliseconds(10);

// Whether nobody listens at the socket any more. A socket whose queue is full is in use.
bool isStaleSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof(address.sun_path) - 1);
  const Descriptor caller(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return ::connect(caller.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
         (errno == ECONNREFUSED || errno == ENOENT);
}

template <class Condition>
bool becomesTrue(const Condition& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(kInterval);
  }
  return true;
}

}  // namespace

bool SocketPath::claim(std::string* error) {
  if (path_.empty() || path_.size() > kLongestSocketPath) {
    *error = "The socket path " + path_ + " is empty or longer than " + std::to_string(kLongestSocketPath) +
             " bytes.";
    return false;
  }
  std::error_code ignored;
  const fs::path folder = fs::path(path_).parent_path();
  if (!folder.empty() && !fs::exists(folder, ignored)) {
    fs::create_directories(folder, ignored);
    // Clients of every user connect here, so the umask of this process does not apply.
    fs::permissions(folder, fs::perms(0755), ignored);
  }
  const std::optional<std::string> shared = whoElseCanWriteTo(folder.empty() ? "." : folder.string());
  if (shared && !allowSharedFolder_) {
    *error = *shared + " The socket " + path_ + " is not safe there (--allow-shared-folder).";
    return false;
  }
  if (!lock(error)) {
    return false;
  }
  struct stat status {};
  const bool isThere = lstat(path_.c_str(), &status) == 0;
  if (isThere && !S_ISSOCK(status.st_mode)) {
    *error = path_ + " is in the way: it is no socket.";
    return false;
  }
  if (isThere && !isStaleSocket(path_)) {
    *error = "Another program already serves " + path_ + ".";
    return false;
  }
  return true;
}

// The lock file is never removed, so that two daemons cannot hold two locks of one name.
bool SocketPath::lock(std::string* error) {
  const std::string path = path_ + ".lock";
  lock_ = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  struct stat status {};
  if (!lock_ || fstat(lock_.get(), &status) != 0) {
    *error = "The lock " + path + " cannot be made: " + std::generic_category().message(errno) + ".";
    return false;
  }
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
    *error = "The lock " + path + " is another user's.";
    return false;
  }
  if (!becomesTrue([this] { return flock(lock_.get(), LOCK_EX | LOCK_NB) == 0; })) {
    *error = "Another keldaned already serves " + path_ + ".";
    return false;
  }
  return true;
}

}  // namespace keldane
