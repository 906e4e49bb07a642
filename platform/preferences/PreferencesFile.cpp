#include "platform/preferences/PreferencesFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "platform/files/FileContents.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

// Another process holds the lock only during one small write. If it holds the lock longer, that process
// hangs, and the host's window must not hang too.
constexpr auto kLongestWait = std::chrono::seconds(2);

std::string errorText(int error) { return std::generic_category().message(error); }

bool writeWhole(int descriptor, const Bytes& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(descriptor, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno != EINTR) {
      return false;
    }
    done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
  }
  return true;
}

/// The file to which a chain of links leads, whether or not it exists yet. Links to anything but a file are
/// not followed, because a damaged file is set aside, and this must not happen to a device or to somebody's
/// folder.
fs::path fileBehindLinks(const fs::path& path) {
  constexpr int kMostLinks = 40;
  fs::path at = path;
  std::error_code error;
  for (int links = 0; fs::is_symlink(at, error); ++links) {
    const fs::path target = fs::read_symlink(at, error);
    if (error || links == kMostLinks) {
      return path;
    }
    at = at.parent_path() / target;
  }
  return !fs::exists(at, error) || fs::is_regular_file(at, error) ? at : path;
}

}  // namespace

PreferencesFile::PreferencesFile(const fs::path& path) : path_(fileBehindLinks(path)) {}

PreferencesFile::Reading PreferencesFile::readOnce(PropertyList& values) {
  int error = 0;
  const std::optional<Bytes> bytes = readFile(path_.string(), &error);
  if (!bytes) {
    if (error == ENOENT || error == ENOTDIR) {
      values = PropertyList::dictionary({});
      return Reading::done;
    }
    reason_ = errorText(error);
    // A damaged file stays damaged, but missing descriptors or memory may be available later.
    const bool ofTheFile =
        error == EACCES || error == EPERM || error == EISDIR || error == EINVAL || error == EFBIG;
    return ofTheFile ? Reading::damaged : Reading::failed;
  }
  std::string sentence;
  const PropertyList value = PropertyListSerialization::propertyListFromData(*bytes, &sentence);
  if (!value.isDictionary()) {
    reason_ = sentence.empty() ? "It holds no dictionary" : sentence;
    return Reading::damaged;
  }
  values = value;
  return Reading::done;
}

bool PreferencesFile::read(PropertyList& values) {
  if (readOnce(values) == Reading::done) {
    return true;
  }
  const Descriptor held = lock();
  return held && readLocked(values);
}

bool PreferencesFile::readLocked(PropertyList& values) {
  switch (readOnce(values)) {
    case Reading::done:
      return true;
    case Reading::failed:
      systemLog("The preferences %s cannot be read: %s", path_.string(), reason_);
      return false;
    case Reading::damaged:
      break;
  }
  if (!setAside()) {
    return false;
  }
  values = PropertyList::dictionary({});
  return true;
}

Descriptor PreferencesFile::lock() {
  std::error_code error;
  const fs::path folder = path_.parent_path();
  if (!fs::exists(folder, error)) {
    fs::create_directories(folder, error);
    fs::permissions(folder, fs::perms::owner_all, error);
  }
  const fs::path file = folder / ("." + path_.filename().string() + ".lock");
  Descriptor held(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
  if (!held) {
    systemLog("The preferences cannot be locked by %s: %s", file.string(), errorText(errno));
    return held;
  }
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (flock(held.get(), LOCK_EX | LOCK_NB) != 0) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > end) {
      systemLog("The preferences' lock %s cannot be had: %s", file.string(), errorText(errno));
      return {};
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return held;
}

bool PreferencesFile::setAside() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char stamp[32];
  std::strftime(stamp, sizeof(stamp), "%Y%m%dT%H%M%SZ", &parts);
  const std::string base = path_.string() + ".damaged-" + stamp;
  std::string name = base;
  for (int attempt = 1; attempt < 100; ++attempt) {
    // An existing file is never replaced.
    if (renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) {
      systemLog("The preferences %s cannot be used (%s) and were set aside as %s", path_.string(), reason_,
                name);
      return true;
    }
    if (errno != EEXIST) {
      break;
    }
    name = base + "-" + std::to_string(attempt);
  }
  systemLog("The preferences %s cannot be used (%s) and cannot be set aside: %s", path_.string(), reason_,
            errorText(errno));
  return false;
}

bool PreferencesFile::merge(const std::map<std::string, PropertyList>& changes, PropertyList& values) {
  const Descriptor held = lock();
  PropertyList stored;
  if (!held || !readLocked(stored)) {
    return false;
  }
  PropertyList::Entries entries;
  for (std::size_t i = 0; i < stored.count(); ++i) {
    PropertyList::Entry entry = stored.entry(i);
    if (!changes.contains(std::string(entry.first.string()))) {
      entries.push_back(std::move(entry));
    }
  }
  for (const auto& [key, value] : changes) {
    entries.emplace_back(key, value);
  }
  const PropertyList merged = PropertyList::dictionary(std::move(entries));
  std::string sentence;
  const std::optional<Bytes> bytes = PropertyListSerialization::dataFromPropertyList(
      merged, PropertyListSerialization::Format::binary, &sentence);
  if (!bytes) {
    systemLog("The preferences %s cannot be written: %s", path_.string(), sentence);
    return false;
  }
  if (!replace(*bytes)) {
    systemLog("The preferences %s cannot be written: %s", path_.string(), errorText(errno));
    return false;
  }
  values = merged;
  return true;
}

bool PreferencesFile::replace(const Bytes& bytes) {
  std::string temporary = (path_.parent_path() / ("." + path_.filename().string() + ".XXXXXX")).string();
  const Descriptor file(mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
  if (!file) {
    return false;
  }
  if (!writeWhole(file.get(), bytes) || fsync(file.get()) != 0 ||
      rename(temporary.c_str(), path_.c_str()) != 0) {
    const int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return false;
  }
  const Descriptor folder(open(path_.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) {
    fsync(folder.get());  // so that the new name survives a power failure, if the file system supports that
  }
  return true;
}

}  // namespace keldane
