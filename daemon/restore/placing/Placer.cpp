#include "daemon/restore/placing/Placer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/files/Path.h"

namespace keldane {

namespace {

class TreePlacer {
 public:
  TreePlacer(PlaceTarget& target, const PlaceWatch& watch) : target_(target), watch_(watch) {}

  bool placeContents(int folder, const std::string& path) {
    for (const std::string& name : namesIn(folder)) {
      struct stat status {};
      if (!watch_.mayGoOn()) {
        return false;
      }
      if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
          !(S_ISDIR(status.st_mode) ? placeFolder(folder, name, appendPathComponent(path, name))
                                    : placeItem(folder, name, status, appendPathComponent(path, name)))) {
        return false;
      }
    }
    return true;
  }

 private:
  bool placeItem(int folder, const std::string& name, const struct stat& status, const std::string& path) {
    watch_.begins(path);
    const TreeCount count{1, S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0};
    const PlaceResult result = target_.place(folder, name);
    if (result.error == ECANCELED) {
      return false;
    }
    if (result.kind == PlaceResult::failed) {
      watch_.failed(count, placeProblem(path, result.error));
    } else {
      (result.kind == PlaceResult::placed ? watch_.placed : watch_.skipped)(count);
      noteMetadata(path, result.metadata);
    }
    return true;
  }

  bool placeFolder(int parent, const std::string& name, const std::string& path) {
    const TreeCount count = countTree(parent, name);
    watch_.begins(path);
    if (target_.moveFolder(parent, name) == 0) {
      watch_.placed(count);
      return true;
    }
    const StagedFolder staged(parent, name);
    const int error = staged ? target_.enter(staged, name) : errno;
    if (error == ECANCELED) {
      return false;
    }
    if (error != 0) {
      watch_.failed(count, placeProblem(path, error));
      return true;
    }
    const bool isWhole = placeContents(staged.get(), path);
    noteMetadata(path, target_.leave(staged));
    return isWhole;
  }

  void noteMetadata(const std::string& path, int error) {
    if (error != 0) {
      watch_.incomplete(path + " is restored, but not all of its mode, owner, times and attributes: " +
                        std::generic_category().message(error) + ".");
    }
  }

  PlaceTarget& target_;
  const PlaceWatch& watch_;
};

bool mayCopyOn(const void* options) {
  const auto& mayGoOn = static_cast<const DirectTarget::Options*>(options)->mayGoOn;
  return !mayGoOn || mayGoOn();
}

}  // namespace

DirectTarget::DirectTarget(Descriptor root, Options options) : options_(std::move(options)) {
  levels_.push_back({std::move(root)});
}

int DirectTarget::moveFolder(int from, const std::string& name) {
  const int to = levels_.back().folder.get();
  const int error = moveToFreeName(from, name.c_str(), to, name.c_str());
  if (error != EACCES) {
    return error;
  }
  // Moving a folder changes the entry ".." in it, so the folder must be writable. The items in it need not
  // be.
  struct stat status {};
  if (fstatat(from, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 || status.st_uid != geteuid()) {
    return error;
  }
  setModeIn(from, name.c_str(), status.st_mode | S_IRWXU);
  const Descriptor folder(openFolderIn(from, name.c_str(), O_RDONLY));
  const int again = folder ? moveToFreeName(from, name.c_str(), to, name.c_str()) : errno;
  fchmod(folder.get(), status.st_mode & 07777);
  return again;
}

int DirectTarget::enter(const StagedFolder& staged, const std::string& name) {
  const int above = levels_.back().folder.get();
  Level level;
  level.isMade = mkdirat(above, name.c_str(), S_IRWXU) == 0;
  if (!level.isMade && errno != EEXIST) {
    return errno;
  }
  const bool isStaging = options_.keepTimes && !level.isMade;
  struct stat status {};
  if (isStaging && fstatat(above, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISDIR(status.st_mode) && (status.st_mode & S_IRWXU) != S_IRWXU) {
    setModeIn(above, name.c_str(), status.st_mode | S_IRWXU);
  }
  level.folder = Descriptor(openFolderIn(above, name.c_str(), level.isMade || isStaging ? O_RDONLY : O_PATH));
  if (!level.folder) {
    return errno;
  }
  level.status = level.isMade ? staged.status() : status;
  levels_.push_back(std::move(level));
  return 0;
}

int DirectTarget::leave(const StagedFolder& staged) {
  const Level level = std::move(levels_.back());
  levels_.pop_back();
  if (level.isMade) {
    return copyMetadata(staged.get(), level.status, level.folder.get(), CopyAs::owner);
  }
  if (options_.keepTimes) {
    const timespec times[] = {level.status.st_atim, level.status.st_mtim};
    futimens(level.folder.get(), times);
    fchmod(level.folder.get(), level.status.st_mode & 07777);
  }
  return 0;
}

PlaceResult DirectTarget::place(int from, const std::string& name) {
  const int to = levels_.back().folder.get();
  const PlaceResult moved = placeItem(from, name.c_str(), to, name.c_str(), options_.conflict);
  if (moved.kind != PlaceResult::failed || moved.error != EXDEV) {
    return moved;
  }
  struct stat status {};
  if (fstatat(from, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return {PlaceResult::failed, errno};
  }
  const bool isRegular = S_ISREG(status.st_mode);
  const bool isShut = isRegular && (status.st_mode & S_IRUSR) == 0;
  if (isShut) {
    setModeIn(from, name.c_str(), status.st_mode | S_IRUSR);
  }
  const Descriptor file(openat(from, name.c_str(), (isRegular ? O_RDONLY : O_PATH) | O_NOFOLLOW | O_CLOEXEC));
  if (isShut) {
    setModeIn(from, name.c_str(), status.st_mode);
  }
  if (!file) {
    return {PlaceResult::failed, errno};
  }
  const PlaceResult copied =
      copyItem(file.get(), to, options_.temporaryName.c_str(), name.c_str(), options_.conflict, CopyAs::owner,
               options_.again, {mayCopyOn, &options_});
  if (copied.kind == PlaceResult::placed) {
    unlinkat(from, name.c_str(), 0);
  }
  return copied;
}

bool placeTree(int stagedFolder, const std::string& path, PlaceTarget& target, const PlaceWatch& watch) {
  return TreePlacer(target, watch).placeContents(stagedFolder, path);
}

std::string placeProblem(const std::string& path, int error) {
  switch (error) {
    case ELOOP:
      return path + " is not restored: a symbolic link is in its place, and links are not followed.";
    case ENOTDIR:
      return path + " is not restored: its place is taken by something that is no folder.";
    case EISDIR:
      return path + " is not restored: its place is taken by a folder, and folders are not replaced.";
    case EEXIST:
      return path + " is not restored: no name beside what is there is free.";
    default:
      return path + " is not restored: " + std::generic_category().message(error) + ".";
  }
}

}  // namespace keldane
