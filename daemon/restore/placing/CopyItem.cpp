#include "daemon/restore/placing/CopyItem.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace keldane {

namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;
// The size of a piece. Between two pieces the permit is asked whether to go on.
constexpr off_t kPiece = off_t{8} << 20;
// The kernel's limits for the value of one attribute and for the names of all attributes.
constexpr std::size_t kMostAttributeBytes = std::size_t{64} << 10;

bool isAccessList(const char* name) { return std::strncmp(name, "system.posix_acl_", 17) == 0; }

bool isCopied(const char* name, CopyAs as) {
  return as == CopyAs::owner || std::strncmp(name, "user.", 5) == 0 || isAccessList(name);
}

int copyAttributes(int from, int to, CopyAs as) {
  char names[kMostAttributeBytes];
  char value[kMostAttributeBytes];
  const ssize_t length = flistxattr(from, names, sizeof(names));
  if (length < 0) {
    return errno == ENOTSUP ? 0 : errno;
  }
  int error = 0;
  for (const char* name = names; name < names + length; name += std::strlen(name) + 1) {
    if (!isCopied(name, as)) {
      continue;
    }
    const ssize_t size = fgetxattr(from, name, value, sizeof(value));
    if ((size < 0 || fsetxattr(to, name, value, static_cast<std::size_t>(size), 0) != 0) && error == 0) {
      error = errno;
    }
  }
  return error;
}

int writeAll(int to, const char* bytes, std::size_t count, off_t offset) {
  while (count > 0) {
    const ssize_t written = pwrite(to, bytes, count, offset);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return written < 0 ? errno : EIO;
    }
    bytes += written;
    offset += written;
    count -= static_cast<std::size_t>(written);
  }
  return 0;
}

int copyByBlocks(int from, int to, off_t offset, off_t end) {
  char block[kBlock];
  while (offset < end) {
    const std::size_t most =
        end - offset < static_cast<off_t>(kBlock) ? static_cast<std::size_t>(end - offset) : kBlock;
    const ssize_t got = pread(from, block, most, offset);
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return got < 0 ? errno : EIO;
    }
    if (const int error = writeAll(to, block, static_cast<std::size_t>(got), offset)) {
      return error;
    }
    offset += got;
  }
  return 0;
}

int copyRange(int from, int to, off_t offset, off_t end, const CopyPermit& permit) {
  while (offset < end) {
    if (permit.mayGoOn != nullptr && !permit.mayGoOn(permit.context)) {
      return ECANCELED;
    }
    off_t source = offset;
    off_t target = offset;
    const off_t piece = end - offset < kPiece ? end - offset : kPiece;
    const ssize_t copied = copy_file_range(from, &source, to, &target, static_cast<std::size_t>(piece), 0);
    if (copied > 0) {
      offset += copied;
      continue;
    }
    if (const int error =
            copyByBlocks(from, to, offset, offset + piece)) {  // not between these two file systems
      return error;
    }
    offset += piece;
  }
  return 0;
}

int copyContents(int from, int to, off_t size, const CopyPermit& permit) {
  if (ftruncate(to, size) != 0) {
    return errno;
  }
  for (off_t data = 0; data < size;) {
    const off_t begin = lseek(from, data, SEEK_DATA);
    if (begin < 0) {
      // Only a hole is left, or this file system does not report holes.
      return errno == ENXIO ? 0 : copyRange(from, to, data, size, permit);
    }
    const off_t hole = lseek(from, begin, SEEK_HOLE);
    const off_t end = hole < 0 || hole > size ? size : hole;
    if (const int error = copyRange(from, to, begin, end, permit)) {
      return error;
    }
    data = end;
  }
  return 0;
}

void setTimes(int folder, const char* name, const struct stat& status) {
  const timespec times[] = {status.st_atim, status.st_mtim};
  utimensat(folder, name, times, AT_SYMLINK_NOFOLLOW);
}

/// Sets the owner. Only root can do that, so nobody else tries.
int setOwner(int folder, const char* name, const struct stat& status) {
  const bool isDone =
      geteuid() != 0 || fchownat(folder, name, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) == 0;
  return isDone ? 0 : errno;
}

int copyLink(int from, const struct stat& status, int toFolder, const char* temporary, CopyAs as,
             int& metadata) {
  char target[PATH_MAX];
  const ssize_t length = readlinkat(from, "", target, sizeof(target) - 1);
  if (length < 0) {
    return errno;
  }
  target[length] = 0;
  if (symlinkat(target, toFolder, temporary) != 0) {
    return errno;
  }
  if (as == CopyAs::owner) {
    metadata = setOwner(toFolder, temporary, status);
  }
  setTimes(toFolder, temporary, status);
  return 0;
}

int copySpecial(const struct stat& status, int toFolder, const char* temporary, CopyAs as, int& metadata) {
  if (as == CopyAs::stranger) {
    return EPERM;
  }
  if (mknodat(toFolder, temporary, (status.st_mode & S_IFMT) | 0600, status.st_rdev) != 0) {
    return errno;
  }
  metadata = setOwner(toFolder, temporary, status);
  if (!setModeIn(toFolder, temporary, status.st_mode)) {
    metadata = errno;
  }
  setTimes(toFolder, temporary, status);
  return 0;
}

bool isThereAlready(const struct stat& status, int toFolder, const char* name) {
  struct stat there {};
  return S_ISREG(status.st_mode) && fstatat(toFolder, name, &there, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(there.st_mode) && there.st_size == status.st_size &&
         there.st_mtim.tv_sec == status.st_mtim.tv_sec && there.st_mtim.tv_nsec == status.st_mtim.tv_nsec;
}

}  // namespace

int copyMetadata(int from, const struct stat& status, int to, CopyAs as) {
  int error = 0;
  const auto note = [&](bool isDone) {
    if (!isDone && error == 0) {
      error = errno;
    }
  };
  if (as == CopyAs::owner && geteuid() == 0) {
    // The owner is set before the mode, because setting it clears the setuid bits.
    note(fchown(to, status.st_uid, status.st_gid) == 0);
  }
  note(fchmod(to, status.st_mode & (as == CopyAs::owner ? 07777 : 0777)) == 0);
  const int attributes = copyAttributes(from, to, as);
  if (error == 0) {
    error = attributes;
  }
  const timespec times[] = {status.st_atim, status.st_mtim};
  note(futimens(to, times) == 0);
  return error;
}

int copyFile(int from, int toFolder, const char* temporary, CopyAs as, const CopyPermit& permit,
             int& metadata) {
  struct stat status {};
  if (fstat(from, &status) != 0) {
    return errno;
  }
  const int to = openat(toFolder, temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (to < 0) {
    return errno;
  }
  int error = copyContents(from, to, status.st_size, permit);
  if (error == 0) {
    metadata = copyMetadata(from, status, to, as);
  }
  if (close(to) != 0 && error == 0) {
    error = errno;
  }
  if (error != 0) {
    unlinkat(toFolder, temporary, 0);
  }
  return error;
}

PlaceResult copyItem(int from, int toFolder, const char* temporary, const char* name, Conflict conflict,
                     CopyAs as, bool again, const CopyPermit& permit) {
  struct stat status {};
  if (fstat(from, &status) != 0) {
    return {PlaceResult::failed, errno};
  }
  if (again && isThereAlready(status, toFolder, name)) {
    return {PlaceResult::placed};
  }
  int metadata = 0;
  const int error = S_ISREG(status.st_mode)   ? copyFile(from, toFolder, temporary, as, permit, metadata)
                    : S_ISLNK(status.st_mode) ? copyLink(from, status, toFolder, temporary, as, metadata)
                                              : copySpecial(status, toFolder, temporary, as, metadata);
  if (error != 0) {
    return {PlaceResult::failed, error};
  }
  PlaceResult result = placeItem(toFolder, temporary, toFolder, name, conflict);
  if (result.kind != PlaceResult::placed) {
    unlinkat(toFolder, temporary, 0);
  }
  result.metadata = metadata;
  return result;
}

}  // namespace keldane
