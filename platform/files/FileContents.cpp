#include "platform/files/FileContents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/files/Descriptor.h"

namespace keldane {

std::optional<Bytes> readFile(const std::string& path, int* error) {
  const auto failed = [&](int number) {
    *error = number;
    return std::nullopt;
  };
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    return failed(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return failed(S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
  }
  Bytes bytes;
  std::uint8_t block[16384];
  for (;;) {
    const ssize_t got = read(file.get(), block, sizeof(block));
    if (got == 0) {
      return bytes;
    }
    if (got < 0 && errno != EINTR) {
      return failed(errno);
    }
    if (got > 0) {
      bytes.insert(bytes.end(), block, block + got);
    }
    if (bytes.size() > kLargestFile) {
      return failed(EFBIG);
    }
  }
}

}  // namespace keldane
