#include "daemon/watch/FileSystemWatches.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/inotify.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <optional>
#include <utility>

namespace keldane {

namespace {

constexpr std::uint64_t kEvents = FAN_CREATE | FAN_DELETE | FAN_MOVED_FROM | FAN_MOVED_TO | FAN_MODIFY |
                                  FAN_CLOSE_WRITE | FAN_ATTRIB | FAN_ONDIR;

static_assert(FAN_CREATE == IN_CREATE && FAN_DELETE == IN_DELETE && FAN_MOVED_FROM == IN_MOVED_FROM &&
              FAN_MOVED_TO == IN_MOVED_TO && FAN_MODIFY == IN_MODIFY && FAN_CLOSE_WRITE == IN_CLOSE_WRITE &&
              FAN_ATTRIB == IN_ATTRIB && FAN_ONDIR == IN_ISDIR && FAN_Q_OVERFLOW == IN_Q_OVERFLOW);

/// The folder and the name of an event.
struct Entry {
  FileSystemWatches::FileSystem fileSystem;
  std::string_view handle;  // the kernel's handle of the folder
  std::string_view name;
};

/// Absent when the event names no folder.
std::optional<Entry> entryIn(std::string_view information) {
  fanotify_event_info_header header{};
  file_handle handle{};
  Entry entry{};
  constexpr std::size_t kHandleAt = sizeof(header) + sizeof(entry.fileSystem);
  if (information.size() < kHandleAt + sizeof(handle)) {
    return std::nullopt;
  }
  std::memcpy(&header, information.data(), sizeof(header));
  std::memcpy(entry.fileSystem.data(), information.data() + sizeof(header), sizeof(entry.fileSystem));
  std::memcpy(&handle, information.data() + kHandleAt, sizeof(handle));
  const std::size_t nameAt = kHandleAt + sizeof(handle) + handle.handle_bytes;
  if (header.info_type != FAN_EVENT_INFO_TYPE_DFID_NAME || information.size() <= nameAt) {
    return std::nullopt;
  }
  entry.handle = information.substr(kHandleAt, nameAt - kHandleAt);
  const std::string_view name = information.substr(nameAt);  // zero bytes fill it up
  entry.name = name.substr(0, name.find('\0'));
  return entry;
}

/// The number of an open file's file system, as events have it.
std::optional<FileSystemWatches::FileSystem> fileSystemOf(const Descriptor& file) {
  struct statfs status {};
  if (!file || fstatfs(file.get(), &status) != 0) {
    return std::nullopt;
  }
  FileSystemWatches::FileSystem number;
  static_assert(sizeof(number) == sizeof(status.f_fsid));
  std::memcpy(number.data(), &status.f_fsid, sizeof(number));
  return number;
}

/// Whether folders can be opened by the handles of events. Not every file system supports it, and the process
/// needs a right for it.
bool canFindFoldersFrom(const Descriptor& folder) {
  alignas(file_handle) std::byte room[sizeof(file_handle) + MAX_HANDLE_SZ];
  auto* handle = reinterpret_cast<file_handle*>(room);
  handle->handle_bytes = MAX_HANDLE_SZ;
  int mount = 0;
  return name_to_handle_at(folder.get(), "", handle, &mount, AT_EMPTY_PATH) == 0 &&
         Descriptor(open_by_handle_at(folder.get(), handle, O_PATH | O_CLOEXEC));
}

/// The path of an open folder, from the kernel. Absent when no path leads to it.
std::optional<std::string> pathOf(const Descriptor& folder) {
  char path[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(folder.get());
  const ssize_t length = readlink(link.c_str(), path, sizeof(path));
  constexpr std::string_view kGone = " (deleted)";
  const std::string_view text(path, length < 0 ? 0 : static_cast<std::size_t>(length));
  return text.starts_with('/') && !text.ends_with(kGone) ? std::optional<std::string>(text) : std::nullopt;
}

}  // namespace

/// Finds the paths of folders, and remembers them while one part of the queue is read. It keeps no file open
/// for longer, because a file system with an open file cannot be unmounted.
class FileSystemWatches::FolderFinder {
 public:
  explicit FolderFinder(const FileSystemWatches& watches) : watches_(watches) {}

  const std::set<std::string>& pathsOf(const Entry& entry) {
    const auto [found, isNew] = known_.try_emplace({entry.fileSystem, std::string(entry.handle)});
    const auto anchors = watches_.anchors_.find(entry.fileSystem);
    if (isNew && anchors != watches_.anchors_.end()) {
      for (const std::string& anchor : anchors->second) {
        add(anchor, entry, found->second);
      }
    }
    return found->second;
  }

 private:
  void add(const std::string& anchor, const Entry& entry, std::set<std::string>& paths) {
    const auto [mount, isNew] = mounts_.try_emplace(anchor);
    if (isNew) {
      mount->second = Descriptor(open(anchor.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    if (fileSystemOf(mount->second) != entry.fileSystem) {
      return;  // it was unmounted meanwhile
    }
    alignas(file_handle) std::byte handle[sizeof(file_handle) + MAX_HANDLE_SZ];
    if (entry.handle.size() > sizeof(handle)) {
      return;
    }
    std::memcpy(handle, entry.handle.data(), entry.handle.size());
    const Descriptor folder(
        open_by_handle_at(mount->second.get(), reinterpret_cast<file_handle*>(handle), O_PATH | O_CLOEXEC));
    if (std::optional<std::string> path = folder ? pathOf(folder) : std::nullopt) {
      paths.insert(*std::move(path));
    }
  }

  const FileSystemWatches& watches_;
  std::map<std::string, Descriptor> mounts_;
  std::map<std::pair<FileSystem, std::string>, std::set<std::string>> known_;  // paths by handle
};

FileSystemWatches::FileSystemWatches()
    : events_(fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DFID_NAME, 0)) {}

// The mark is made again each time, because unmounting removes an earlier one.
bool FileSystemWatches::add(const std::string& folder, const std::string& mountPoint) {
  const Descriptor place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const std::optional<FileSystem> fileSystem = fileSystemOf(place);
  constexpr unsigned kHow = FAN_MARK_ADD | FAN_MARK_FILESYSTEM | FAN_MARK_ONLYDIR;
  if (!events_ || !fileSystem || !canFindFoldersFrom(place) ||
      fanotify_mark(events_.get(), kHow, kEvents, AT_FDCWD, folder.c_str()) != 0) {
    return false;
  }
  // An old mount point may lead to another file system by now.
  const Descriptor mount(open(mountPoint.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  anchors_[*fileSystem].insert(fileSystemOf(mount) == fileSystem ? mountPoint : folder);
  return true;
}

// Events are not aligned, so their parts are copied.
std::size_t FileSystemWatches::read(const Tell& tell) {
  char buffer[std::size_t{64} << 10];
  const ssize_t got = ::read(events_.get(), buffer, sizeof(buffer));
  const std::size_t size = got < 0 ? 0 : static_cast<std::size_t>(got);
  FolderFinder finder(*this);
  fanotify_event_metadata event{};
  for (std::size_t at = 0; at + sizeof(event) <= size; at += event.event_len) {
    std::memcpy(&event, buffer + at, sizeof(event));
    if (event.event_len < sizeof(event) || event.event_len > size - at) {
      break;
    }
    const auto mask = static_cast<std::uint32_t>(event.mask);
    const std::string_view information(buffer + at + event.metadata_len,
                                       event.event_len - event.metadata_len);
    if ((mask & FAN_Q_OVERFLOW) != 0) {
      tell({}, {}, mask);
    } else if (const std::optional<Entry> entry = entryIn(information)) {
      for (const std::string& folder : finder.pathsOf(*entry)) {
        tell(folder, entry->name == "." ? std::string_view() : entry->name, mask);
      }
    }
  }
  return size;
}

}  // namespace keldane
