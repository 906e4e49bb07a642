// Simulates a machine that is busy at the wrong moment, for preloading. About a quarter of all reads from
// sockets and of all accepted connections wait up to KELDANE_SLOW_SOCKETS milliseconds. So the order of
// threads and processes varies from run to run.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <random>
#include <thread>

#include "tests/tools/NextFunction.h"

namespace {

bool isSocket(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode);
}

void maybeWait() {
  static const long longest = [] {
    const char* text = std::getenv("KELDANE_SLOW_SOCKETS");
    return text == nullptr ? 0 : std::strtol(text, nullptr, 10);
  }();
  thread_local std::minstd_rand random{std::random_device()()};
  if (longest > 0 && random() % 4 == 0) {
    std::this_thread::sleep_for(
        std::chrono::microseconds(random() % (1000 * static_cast<unsigned long>(longest))));
  }
}

}  // namespace

extern "C" {

ssize_t read(int descriptor, void* bytes, size_t count) {
  static const auto realRead = NEXT(read);
  const int error = errno;
  if (isSocket(descriptor)) {
    maybeWait();
  }
  errno = error;
  return realRead(descriptor, bytes, count);
}

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
  static const auto realAccept4 = NEXT(accept4);
  const int accepted = realAccept4(descriptor, address, size, flags);
  const int error = errno;
  maybeWait();
  errno = error;
  return accepted;
}
}
