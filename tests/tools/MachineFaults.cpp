// Faults of a machine, for preloading: a clock that jumps, a disk that is full, a file system that cannot be
// written. Each is switched while the program runs, by a file in the folder that KELDANE_MACHINE_FAULTS
// names:
//   clock      holds the number of seconds by which the time of day is ahead
//   full       while it exists, no regular file except standard error can be written to
//   read-only  while it exists, no file can be opened for writing, made, renamed or removed
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/tools/NextFunction.h"

namespace {

bool pathOf(const char* what, char (&path)[512]) {
  const char* folder = std::getenv("KELDANE_MACHINE_FAULTS");
  return folder != nullptr && std::snprintf(path, sizeof(path), "%s/%s", folder, what) > 0;
}

bool isSwitchedOn(const char* what) {
  const int error = errno;
  char path[512];
  const bool on = pathOf(what, path) && access(path, F_OK) == 0;
  errno = error;
  return on;
}

time_t secondsAhead() {
  const int error = errno;
  char path[512];
  char text[32] = {};
  if (pathOf("clock", path)) {
    static const auto realOpen = NEXT(open);
    const int file = realOpen(path, O_RDONLY | O_CLOEXEC);
    if (file >= 0) {
      [[maybe_unused]] const ssize_t got = read(file, text, sizeof(text) - 1);
      close(file);
    }
  }
  errno = error;
  return std::atol(text);
}

bool cannotGrow(int descriptor) {
  struct stat status {};
  if (descriptor == STDERR_FILENO || !isSwitchedOn("full") || fstat(descriptor, &status) != 0 ||
      !S_ISREG(status.st_mode)) {
    return false;
  }
  errno = ENOSPC;
  return true;
}

bool mayNotWrite(const char* path) {
  if (std::strncmp(path, "/dev/", 5) == 0 || !isSwitchedOn("read-only")) {
    return false;
  }
  errno = EROFS;
  return true;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) {
  const int result = NEXT(clock_gettime)(clock, now);
  if (result == 0 && clock == CLOCK_REALTIME) {
    now->tv_sec += secondsAhead();
  }
  return result;
}

int gettimeofday(timeval* __restrict now, void* __restrict zone) {
  const int result = NEXT(gettimeofday)(now, zone);
  now->tv_sec += secondsAhead();
  return result;
}

time_t time(time_t* result) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) {
    *result = now.tv_sec;
  }
  return now.tv_sec;
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
  return cannotGrow(descriptor) ? -1 : NEXT(write)(descriptor, bytes, count);
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t count, off64_t offset) {
  return cannotGrow(descriptor) ? -1 : NEXT(pwrite64)(descriptor, bytes, count, offset);
}

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return (flags & (O_WRONLY | O_RDWR | O_CREAT)) != 0 && mayNotWrite(path) ? -1
                                                                           : NEXT(open)(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open(path, flags, mode);
}

int mkostemp(char* pattern, int flags) { return mayNotWrite(pattern) ? -1 : NEXT(mkostemp)(pattern, flags); }

int mkdir(const char* path, mode_t mode) { return mayNotWrite(path) ? -1 : NEXT(mkdir)(path, mode); }

int rename(const char* from, const char* to) { return mayNotWrite(from) ? -1 : NEXT(rename)(from, to); }

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned int flags) {
  return mayNotWrite(from) ? -1 : NEXT(renameat2)(fromFolder, from, toFolder, to, flags);
}

int unlink(const char* path) { return mayNotWrite(path) ? -1 : NEXT(unlink)(path); }
}
