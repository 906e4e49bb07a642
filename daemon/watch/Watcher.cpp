#include "daemon/watch/Watcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using std::chrono::steady_clock;

// The time from the first event to the call that reports it, with all events that came meanwhile.
constexpr std::chrono::milliseconds kGathering(300);
// The time between two reads of the queue, so that a file that is written all the time does not wake the
// thread all the time. The second one is for a queue that could overflow.
constexpr std::chrono::milliseconds kPause(100), kShortPause(2), kLongest = std::chrono::hours(1);
constexpr auto kNever = steady_clock::time_point::max();
constexpr std::size_t kMuchBytes = std::size_t{64} << 10;

using PlaceSet = std::set<std::string, std::less<>>;

/// Whether a path is at or below a place.
bool isInOne(const PlaceSet& places, std::string_view path) {
  while (!places.contains(path) && path.size() > 1) {
    path = parentPath(path);
  }
  return places.contains(path);
}

/// Whether a place is at or below a path.
bool leadsToOne(const PlaceSet& places, const std::string& path) {
  const auto below = places.lower_bound(path == "/" ? path : path + '/');
  return places.contains(path) || (below != places.end() && isAtOrBelow(*below, path));
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

Watcher::Watcher(Tell tell, std::size_t mostWatches)
    : tell_(std::move(tell)),
      wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      watches_(mostWatches),
      mounts_(MountTable::read()),
      folderEvents_(watches_.descriptor()),
      fileSystemEvents_(fileSystems_.descriptor()) {}

Watcher::~Watcher() { stop(); }

void Watcher::start() {
  mountsFile_ = Descriptor(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
  {
    const ScopedLock guard(mutex_);
    mounts_ = MountTable::read();
  }
  thread_ = std::thread([this] { run(); });
}

void Watcher::stop() {
  if (thread_.joinable()) {
    eventfd_write(wake_.get(), 1);
    thread_.join();
  }
}

// --- What is watched ---

void Watcher::setPlaces(const Places& places) {
  const ScopedLock guard(mutex_);
  const std::vector<std::string> now = places();
  const PlaceSet& set = places_ = {now.begin(), now.end()};
  watches_.dropUnless(
      [&set](const std::string& folder) { return isInOne(set, folder) || leadsToOne(set, folder); });
  for (const std::string& place : places_) {
    watchAbove(place);
  }
}

void Watcher::addPlace(const std::string& place) {
  const ScopedLock guard(mutex_);
  if (!isInPlace(place)) {
    places_.insert(place);
    watchAbove(place);
  }
}

// The folders above are watched from the top down, so each reports a folder that is made below it meanwhile.
void Watcher::watchAbove(const std::string& place) {
  std::vector<std::string> above;
  for (std::string_view path = place; path.size() > 1;) {
    path = parentPath(path);
    above.emplace_back(path);
  }
  for (auto folder = above.rbegin(); folder != above.rend(); ++folder) {
    const bool holdsFile = std::next(folder) == above.rend() && !isFolder(place);
    const auto depth = holdsFile ? FolderWatches::Depth::files : FolderWatches::Depth::names;
    if (!watches_.isWatched(*folder, depth)) {
      add(*folder, depth);
    }
  }
}

FolderWatches::Outcome Watcher::add(const std::string& folder, FolderWatches::Depth depth) {
  const FolderWatches::Outcome outcome = watches_.add(folder, depth);
  if (outcome != FolderWatches::Outcome::noneLeft || !fileSystems_.add(folder, mounts_.pointOf(folder))) {
    return outcome;
  }
  if (watches_.isWhole(folder)) {
    watches_.addTold(folder);
  }
  return FolderWatches::Outcome::watched;
}

bool Watcher::watch(const std::string& folder) {
  const ScopedLock guard(mutex_);
  const bool wasKnown = watches_.isWhole(folder);
  const Mount* mount = mounts_.at(mounts_.pointOf(folder));
  if (mount != nullptr && !isLocal(*mount)) {
    watches_.addUnwatched(folder);
    sayOnce(saidRemote_,
            "File systems of other computers and of programs cannot be watched. Included folders there are "
            "looked at from time to time.");
  } else if (add(folder, FolderWatches::Depth::whole) == FolderWatches::Outcome::noneLeft) {
    sayOnce(saidNoneLeft_,
            "The system gives no more watches (fs.inotify.max_user_watches and max_user_instances). The "
            "folders that are left are looked at from time to time.");
  }
  return wasKnown;
}

void Watcher::sayOnce(bool& said, const char* sentence) {
  if (!said) {
    said = true;
    systemLog("%s", sentence);
  }
}

bool Watcher::isKnown(const std::string& folder) const {
  const ScopedLock guard(mutex_);
  return watches_.isWhole(folder);
}

void Watcher::forget(const std::string& folder) {
  const ScopedLock guard(mutex_);
  if (!leadsToPlace(folder)) {
    watches_.drop(folder);
  }
}

std::vector<std::string> Watcher::unwatchedAfter(std::string_view last, std::size_t most) const {
  const ScopedLock guard(mutex_);
  return watches_.unwatchedAfter(last, most);
}

Watcher::Counts Watcher::counts() const {
  const ScopedLock guard(mutex_);
  return {watches_.watched(), watches_.unwatched()};
}

bool Watcher::isInPlace(const std::string& path) const { return isInOne(places_, path); }

bool Watcher::leadsToPlace(const std::string& path) const { return leadsToOne(places_, path); }

// --- What changes ---

// A change above a place counts as a change of the places below it.
void Watcher::treeChanged(const std::string& path) {
  watches_.drop(path);
  if (isInPlace(path)) {
    changes_.addTree(path);
    if (places_.contains(path)) {
      watchAbove(path);
    }
    return;
  }
  const std::string below = path == "/" ? path : path + '/';
  for (auto place = places_.lower_bound(below); place != places_.end() && place->starts_with(below);
       ++place) {
    watchAbove(*place);
    changes_.addTree(*place);
  }
}

void Watcher::everythingChanged() {
  for (const std::string& place : places_) {
    watchAbove(place);
    changes_.addTree(place);
  }
}

void Watcher::overflowed() {
  everythingChanged();
  sayOnce(saidOverflow_, "Files change faster than the system can tell. Everything is looked at again.");
}

void Watcher::handle(const inotify_event& event, std::string_view name) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    overflowed();
    return;
  }
  if ((event.mask & (IN_IGNORED | IN_UNMOUNT)) != 0) {  // the table of mounts reports an unmount
    watches_.forget(event.wd);
    return;
  }
  for (const std::string& folder : watches_.foldersOf(event.wd)) {
    if (!name.empty()) {
      handleNamed(folder, name, event.mask);
    } else if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF)) != 0) {
      // The folder above reports it, too, unless it cannot be watched.
      if (places_.contains(folder)) {
        treeChanged(folder);
      }
    } else if (watches_.isWhole(folder)) {
      changes_.addFolder(folder);  // its mode or attributes
    }
  }
}

void Watcher::handleNamed(const std::string& folder, std::string_view name, std::uint32_t mask) {
  const std::string path = appendPathComponent(folder, name);
  if (!watches_.isWhole(folder) && !leadsToPlace(path)) {
    return;
  }
  if ((mask & IN_ISDIR) == 0) {
    changes_.addEntry(folder, std::string(name));
  } else if ((mask & (IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO)) != 0) {
    treeChanged(path);
  } else if (isInPlace(path)) {
    changes_.addFolder(path);
  }
}

void Watcher::readMounts() {
  MountTable now = MountTable::read();
  const ScopedLock guard(mutex_);
  for (const auto& [point, mount] : now.all()) {
    const Mount* before = mounts_.at(point);
    if (before == nullptr || *before != mount) {
      treeChanged(point);
    }
  }
  for (const auto& [point, mount] : mounts_.all()) {
    if (!now.isMountPoint(point)) {
      treeChanged(point);
    }
  }
  mounts_ = std::move(now);
}

void Watcher::readFolders() {
  alignas(inotify_event) char buffer[std::size_t{256} << 10];
  const ssize_t got = read(folderEvents_, buffer, sizeof(buffer));
  const std::size_t size = got < 0 ? 0 : static_cast<std::size_t>(got);
  lastRead_ += size;
  const ScopedLock guard(mutex_);
  for (std::size_t at = 0; at < size;) {
    const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
    handle(*event, event->len > 0 ? std::string_view(event->name) : std::string_view());
    at += sizeof(inotify_event) + event->len;
  }
}

void Watcher::readFileSystems() {
  const ScopedLock guard(mutex_);
  lastRead_ += fileSystems_.read([this](const std::string& folder, std::string_view name, std::uint32_t mask)
                                     KELDANE_REQUIRES(mutex_) {
                                       if ((mask & IN_Q_OVERFLOW) != 0) {
                                         overflowed();
                                       } else if (watches_.isWatched(folder, FolderWatches::Depth::names)) {
                                         return;  // its own watch reports it
                                       } else if (!name.empty()) {
                                         handleNamed(folder, name, mask);
                                       } else if (watches_.isWhole(folder)) {
                                         changes_.addFolder(folder);  // its mode or attributes
                                       }
                                     });
}

int Watcher::millisecondsUntil(steady_clock::time_point until, bool isPausing) const {
  const auto most = isPausing ? (lastRead_ > kMuchBytes ? kShortPause : kPause) : kLongest;
  const auto left =
      until == kNever ? most : std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now());
  return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), most).count());
}

void Watcher::run() {
  auto tellAt = kNever;
  bool isPausing = false;
  for (;;) {
    pollfd polled[] = {{wake_.get(), POLLIN, 0},
                       {mountsFile_.get(), POLLPRI, 0},
                       {isPausing ? -1 : folderEvents_, POLLIN, 0},
                       {isPausing ? -1 : fileSystemEvents_, POLLIN, 0}};
    poll(polled, std::size(polled), millisecondsUntil(tellAt, isPausing));
    if (polled[0].revents != 0) {
      return;
    }
    try {
      if (polled[1].revents != 0) {
        readMounts();
      }
      isPausing = polled[2].revents != 0 || polled[3].revents != 0;
      lastRead_ = 0;
      if (polled[2].revents != 0) {
        readFolders();
      }
      if (polled[3].revents != 0) {
        readFileSystems();
      }
      std::vector<Change> changes;
      {
        const ScopedLock guard(mutex_);
        if (!changes_.isEmpty() && tellAt == kNever) {
          tellAt = steady_clock::now() + kGathering;
        } else if (steady_clock::now() >= tellAt) {
          changes = changes_.take();
          tellAt = kNever;
        }
      }
      if (!changes.empty()) {
        tell_(changes);
      }
    } catch (const std::exception& error) {
      systemLog("The watcher could not go on with its work: %s", error.what());
      isPausing = true;
    }
  }
}

}  // namespace keldane
