#include "daemon/restore/placing/PlaceItem.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace keldane {

namespace {

// More copies of one name than this mean that something else is wrong.
constexpr unsigned kMostNames = 100'000;

/// Writes " (restored 12)" and returns its length.
std::size_t writeMark(unsigned attempt, char (&mark)[32]) {
  constexpr char kWord[] = " (restored";
  std::memcpy(mark, kWord, sizeof(kWord) - 1);
  std::size_t length = sizeof(kWord) - 1;
  if (attempt > 1) {
    char digits[12];
    std::size_t count = 0;
    for (unsigned rest = attempt; rest > 0; rest /= 10) {
      digits[count++] = static_cast<char>('0' + rest % 10);
    }
    mark[length++] = ' ';
    while (count > 0) {
      mark[length++] = digits[--count];
    }
  }
  mark[length++] = ')';
  return length;
}

}  // namespace

void restoredName(const char* name, unsigned attempt, char (&out)[NAME_MAX + 1]) {
  const std::size_t length = std::min<std::size_t>(std::strlen(name), NAME_MAX);
  std::size_t stem = length;
  for (std::size_t i = length; i > 1; --i) {
    if (name[i - 1] == '.') {
      stem = i == length ? length : i - 1;  // a dot at the end of the name begins no extension
      break;
    }
  }
  char mark[32];
  const std::size_t markLength = writeMark(attempt, mark);
  std::size_t extension = length - stem;
  if (extension + markLength >= NAME_MAX) {  // it is too long for an extension
    stem = length;
    extension = 0;
  }
  std::size_t kept = std::min(stem, NAME_MAX - markLength - extension);
  while (kept > 0 && kept < stem && (static_cast<unsigned char>(name[kept]) & 0xC0) == 0x80) {
    --kept;  // so that no character is cut in two
  }
  std::memcpy(out, name, kept);
  std::memcpy(out + kept, mark, markLength);
  std::memcpy(out + kept + markLength, name + stem, extension);
  out[kept + markLength + extension] = 0;
}

int moveToFreeName(int fromFolder, const char* fromName, int toFolder, const char* name) {
  if (syscall(SYS_renameat2, fromFolder, fromName, toFolder, name, RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return errno;
  }
  // This file system cannot rename without replacing in one step. A hard link never replaces anything either.
  if (linkat(fromFolder, fromName, toFolder, name, 0) != 0) {
    return errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS ? EXDEV : errno;
  }
  unlinkat(fromFolder, fromName, 0);
  return 0;
}

PlaceResult placeItem(int fromFolder, const char* fromName, int toFolder, const char* name,
                      Conflict conflict) {
  int error = moveToFreeName(fromFolder, fromName, toFolder, name);
  if (error != EEXIST) {
    return {error == 0 ? PlaceResult::placed : PlaceResult::failed, error};
  }
  if (conflict == Conflict::skip) {
    return {PlaceResult::skipped};
  }
  if (conflict == Conflict::replace) {
    error = renameat(fromFolder, fromName, toFolder, name) == 0 ? 0 : errno;
    return {error == 0 ? PlaceResult::placed : PlaceResult::failed, error};
  }
  char other[NAME_MAX + 1];
  for (unsigned attempt = 1; error == EEXIST && attempt <= kMostNames; ++attempt) {
    restoredName(name, attempt, other);
    error = moveToFreeName(fromFolder, fromName, toFolder, other);
  }
  return {error == 0 ? PlaceResult::placed : PlaceResult::failed, error};
}

bool setModeIn(int folder, const char* name, mode_t mode) {
  return fchmodat(folder, name, mode & 07777, 0) == 0;
}

int openFolderIn(int folder, const char* name, int flags) {
  const int opened = openat(folder, name, flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (opened < 0 && (errno == ENOTDIR || errno == ELOOP)) {
    struct stat status {};
    const bool isLink = fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
    errno = isLink ? ELOOP : ENOTDIR;
  }
  return opened;
}

}  // namespace keldane
