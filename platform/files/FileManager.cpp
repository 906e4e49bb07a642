#include "platform/files/FileManager.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <thread>

#include "platform/files/Path.h"
#include "platform/host/Host.h"
#include "platform/syslog/SystemLog.h"
#include "platform/threads/SignalsBlocked.h"

namespace keldane {

namespace {

bool holdsNul(const std::string& path) { return path.find('\0') != std::string::npos; }

// The type is the first of the codes that the attribute holds, most significant byte first.
OSType typeCode(const std::string& path, bool traverseLink) {
  unsigned char info[32];
  const auto read = traverseLink ? getxattr : lgetxattr;
  if (read(path.c_str(), "user.com.apple.FinderInfo", info, sizeof(info)) < 4) {
    return 0;
  }
  return OSType{info[0]} << 24 | OSType{info[1]} << 16 | OSType{info[2]} << 8 | OSType{info[3]};
}

bool spawnOpener(const std::string& path) {
  // A name that begins with a hyphen would be read as an option.
  const std::string argument = path.starts_with('-') ? "./" + path : path;
  // xdg-open would show the text of a launcher instead of starting it.
  const bool isLauncher = argument.ends_with(".desktop");
  const std::array<const char*, 4> arguments =
      isLauncher ? std::array<const char*, 4>{"gio", "launch", argument.c_str(), nullptr}
                 : std::array<const char*, 4>{"xdg-open", argument.c_str(), nullptr, nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
  // The calling thread may block the host's signals, but the program must still receive its own.
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  pid_t child = 0;
  const int error = posix_spawnp(&child, arguments[0], &actions, &attributes,
                                 const_cast<char* const*>(arguments.data()), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) {
    systemLog("%s could not be started to open %s: error %d", arguments[0], path, error);
    return false;
  }
  // A thread of its own collects the child process, so that no other thread waits and the host's handling of
  // its own children is not affected.
  try {
    const SignalsBlocked blocked;
    std::thread([child] { waitpid(child, nullptr, 0); }).detach();  // no signal can interrupt it
  } catch (const std::exception& exception) {  // the program runs; its zombie stays until the host ends
    systemLog("%s cannot be waited for: %s", arguments[0], exception.what());
  }
  return true;
}

}  // namespace

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) {
  struct stat status {};
  if (path.empty() || holdsNul(path) || stat(path.c_str(), &status) != 0) {
    return false;
  }
  if (isDirectory != nullptr) {
    *isDirectory = S_ISDIR(status.st_mode);
  }
  return true;
}

std::optional<FileAttributes> FileManager::fileAttributesAtPath(const std::string& path, bool traverseLink) {
  struct stat status {};
  if (holdsNul(path) || (traverseLink ? stat : lstat)(path.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return FileAttributes{static_cast<std::uint64_t>(status.st_size), status.st_uid, status.st_gid,
                        typeCode(path, traverseLink)};
}

bool FileManager::isReadableFileAtPath(const std::string& path) {
  return !holdsNul(path) && access(path.c_str(), R_OK) == 0;
}

std::string FileManager::displayNameAtPath(const std::string& path) { return lastPathComponent(path); }

bool Workspace::openFile(const std::optional<std::string>& path) {
  if (const Host::FileOpener opener = Host::shared().fileOpener()) {
    return opener(path);
  }
  return path && !path->empty() && !holdsNul(*path) && spawnOpener(*path);
}

}  // namespace keldane
