#include "daemon/scan/disk/FolderEntries.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemon/scan/disk/FileFacts.h"
#include "platform/files/Path.h"

namespace keldane {

namespace {

constexpr const char* kAttribute = "user.xdg.robots.backup";
constexpr std::string_view kTagSignature = "Signature: 8a477f597d28d172789f06886806bc55";
// Memory above this size is freed, because such large folders are rare.
constexpr std::size_t kMuchRoom = std::size_t{4} << 20;

bool isFalse(const char* value, ssize_t length) { return length == 5 && std::memcmp(value, "false", 5) == 0; }

/// The layout of the system call's entries, which not every C library declares.
struct AttributeRequest {
  std::uint64_t value = 0;
  std::uint32_t size = 0;
  std::uint32_t flags = 0;
};
constexpr long kGetAttributeAt = 464;

struct Directory {
  alignas(dirent64) char buffer[std::size_t{32} << 10];
};

}  // namespace

int FolderEntries::read(const std::string& folder, bool cacheTag, bool attribute) {
  names_.clear();
  found_.clear();
  files_.clear();
  folders_.clear();
  mark_ = Mark::none;
  if (names_.capacity() > kMuchRoom) {
    names_.shrink_to_fit();
    found_.shrink_to_fit();
    files_.shrink_to_fit();
  }
  folder_ = Descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!folder_) {
    return errno;
  }
  if (attribute) {
    char value[8];
    mark_ = isFalse(value, fgetxattr(folder_.get(), kAttribute, value, sizeof(value))) ? Mark::attribute
                                                                                       : Mark::none;
  }
  const int error = readEntries(cacheTag);
  sort();
  return error;
}

int FolderEntries::readEntries(bool cacheTag) {
  static thread_local Directory part;
  for (;;) {
    const ssize_t got = getdents64(folder_.get(), part.buffer, sizeof(part.buffer));
    if (got <= 0) {
      return got == 0 ? 0 : errno;
    }
    for (ssize_t at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const dirent64*>(part.buffer + at);
      at += entry->d_reclen;
      const std::string_view name = entry->d_name;
      if (name == "." || name == "..") {
        continue;
      }
      Found found{names_.size(), name.size(), entry->d_type == DT_DIR, {}, 0};
      if (entry->d_type == DT_REG || entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) {
        struct stat status {};
        if (fstatat(folder_.get(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
          continue;  // it has just gone
        }
        found.isFolder = S_ISDIR(status.st_mode);
        if (!found.isFolder && !isStorable(status)) {
          continue;
        }
        found.state = fileStateOf(status);
        found.owner = ownerOf(status);
      } else if (!found.isFolder) {
        continue;
      }
      names_.append(name).push_back('\0');
      found_.push_back(found);
      if (cacheTag && name == kCacheTagName && mark_ == Mark::none && hasValidTag()) {
        mark_ = Mark::cacheTag;
      }
    }
  }
}

void FolderEntries::sort() {
  for (const Found& found : found_) {
    const std::string_view name(names_.data() + found.offset, found.length);
    if (found.isFolder) {
      folders_.push_back(name);
    } else {
      files_.push_back({name, found.state, found.owner});
    }
  }
  std::sort(folders_.begin(), folders_.end());
  std::sort(files_.begin(), files_.end(), [](const File& a, const File& b) { return a.name < b.name; });
}

bool FolderEntries::hasValidTag() const {
  const Descriptor tag(
      openat(folder_.get(), kCacheTagName.data(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  char begin[kTagSignature.size()];
  return tag && ::read(tag.get(), begin, sizeof(begin)) == static_cast<ssize_t>(sizeof(begin)) &&
         std::string_view(begin, sizeof(begin)) == kTagSignature;
}

// The path is resolved anew only when the kernel lacks the shorter way.
bool FolderEntries::isMarked(std::string_view name, const std::string& folder) const {
  static const bool isOld = [] {
    return syscall(kGetAttributeAt, -1, "", 0, "", nullptr, 0) == -1 && (errno == ENOSYS || errno == EPERM);
  }();
  if (isOld) {
    return hasNoBackupAttribute(appendPathComponent(folder, name));
  }
  char value[8];
  AttributeRequest request;
  request.value = reinterpret_cast<std::uintptr_t>(value);
  request.size = sizeof(value);
  const long got = syscall(kGetAttributeAt, folder_.get(), name.data(), AT_SYMLINK_NOFOLLOW, kAttribute,
                           &request, sizeof(request));
  return isFalse(value, got);
}

bool hasNoBackupAttribute(const std::string& path) {
  char value[8];
  return isFalse(value, lgetxattr(path.c_str(), kAttribute, value, sizeof(value)));
}

}  // namespace keldane
