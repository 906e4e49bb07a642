#include "daemon/restore/Holes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "daemon/restore/PlaceItem.h"
#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

constexpr off_t kHoleRun = 64 * 1024;
constexpr off_t kHoleBlock = 1024 * 1024;

bool isZero(const char* bytes, std::size_t count) {
  // Each byte is compared with the one before it, and the first with zero.
  return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

/// Joins neighbouring runs, so that each hole is one call.
class Puncher {
 public:
  explicit Puncher(int file) : file_(file) {}
  bool add(off_t begin) {
    if (begin != end_ && !punch()) {
      return false;
    }
    begin_ = begin == end_ ? begin_ : begin;
    end_ = begin + kHoleRun;
    return true;
  }
  bool punch() {
    const bool isDone = begin_ >= end_ || fallocate(file_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, begin_,
                                                    end_ - begin_) == 0;
    begin_ = end_ = 0;
    return isDone;
  }

 private:
  const int file_;
  off_t begin_ = 0;
  off_t end_ = 0;
};

bool punchRange(int file, off_t begin, off_t end, char* block) {
  Puncher puncher(file);
  for (off_t offset = (begin + kHoleRun - 1) / kHoleRun * kHoleRun; offset < end;) {
    const ssize_t got =
        pread(file, block, static_cast<std::size_t>(std::min(kHoleBlock, end - offset)), offset);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < kHoleRun) {
      break;  // the rest is shorter than a run
    }
    const off_t whole = got / kHoleRun * kHoleRun;
    for (off_t run = 0; run < whole; run += kHoleRun) {
      if (isZero(block + run, static_cast<std::size_t>(kHoleRun)) && !puncher.add(offset + run)) {
        return false;
      }
    }
    offset += whole;
  }
  return puncher.punch();
}

}  // namespace

void makeHoles(int folder, const char* name) {
  struct stat status {};
  if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode)) {
    return;
  }
  Descriptor file(openat(folder, name, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  const bool isShut = !file && errno == EACCES && setModeIn(folder, name, S_IRUSR | S_IWUSR);
  if (isShut) {
    file = Descriptor(openat(folder, name, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  }
  if (file) {
    const auto block = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(kHoleBlock));
    for (off_t data = 0; data < status.st_size;) {
      const off_t begin = lseek(file.get(), data, SEEK_DATA);
      const off_t hole = begin < 0 ? -1 : lseek(file.get(), begin, SEEK_HOLE);
      if (hole < 0 || !punchRange(file.get(), begin, hole, block.get())) {
        break;
      }
      data = hole;
    }
    const timespec times[] = {status.st_atim, status.st_mtim};
    futimens(file.get(), times);
  }
  if (isShut) {
    setModeIn(folder, name, status.st_mode);
  }
}

}  // namespace keldane
