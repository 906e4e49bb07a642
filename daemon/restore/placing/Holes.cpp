#include "daemon/restore/placing/Holes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "daemon/restore/placing/PlaceItem.h"
#include "platform/files/Descriptor.h"

namespace keldane {

namespace {

constexpr off_t kHoleRun = off_t{64} << 10;
constexpr off_t kAskedEvery = kHoleRun << 10;

bool isZero(const char* bytes, std::size_t count) {
  // Each byte is compared with the one before it, and the first with zero.
  return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

/// Joins neighbouring runs, so that each hole takes one system call.
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

/// Whether a run holds only zeros. A run that is still in memory, because it was just written, need not be
/// read whole to see that it does not. Any other run is read from its beginning to its end, so that the disk
/// is read in order.
bool isRunZero(int file, off_t offset, char* run) {
  constexpr std::size_t kProbe = 64;
  iovec probe{run, kProbe};
  if (preadv2(file, &probe, 1, offset, RWF_NOWAIT) == static_cast<ssize_t>(kProbe) && !isZero(run, kProbe)) {
    return false;
  }
  for (off_t got = 0; got < kHoleRun;) {
    const ssize_t more = pread(file, run + got, static_cast<std::size_t>(kHoleRun - got), offset + got);
    if (more < 0 && errno == EINTR) {
      continue;
    }
    if (more <= 0) {
      return false;
    }
    got += more;
  }
  return isZero(run, static_cast<std::size_t>(kHoleRun));
}

bool punchRange(int file, off_t begin, off_t end, char* run, const std::function<bool()>& mayGoOn) {
  Puncher puncher(file);
  const off_t first = (begin + kHoleRun - 1) / kHoleRun * kHoleRun;
  for (off_t offset = first; offset + kHoleRun <= end; offset += kHoleRun) {
    const bool isAsked = offset % kAskedEvery == 0;
    if ((isAsked && !mayGoOn()) || (isRunZero(file, offset, run) && !puncher.add(offset))) {
      return false;
    }
  }
  return puncher.punch();
}

}  // namespace

void makeHoles(int folder, const char* name, const std::function<bool()>& mayGoOn) {
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
    const auto run = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(kHoleRun));
    for (off_t data = 0; data < status.st_size;) {
      const off_t begin = lseek(file.get(), data, SEEK_DATA);
      const off_t hole = begin < 0 ? -1 : lseek(file.get(), begin, SEEK_HOLE);
      if (hole < 0 || !punchRange(file.get(), begin, hole, run.get(), mayGoOn)) {
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
