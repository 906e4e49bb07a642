#include "clients/preferences/worker/own/LookFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "clients/core/words/Printable.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

Descriptor lockOf(const std::string& folder) {
  Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return descriptor && flock(descriptor.get(), LOCK_EX | LOCK_NB) == 0 ? std::move(descriptor) : Descriptor();
}

std::string newFolderIn(const std::string& folder) {
  std::string pattern = folder + "/XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("No private folder can be made in " + printable(folder) + ": " +
                             std::generic_category().message(errno) + ".");
  }
  return pattern;
}

}  // namespace

void LookFolder::sweep() const {
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(base_, error)) {
    if (const Descriptor lock = lockOf(entry.path())) {
      std::error_code ignored;
      fs::remove_all(entry.path(), ignored);
    }
  }
}

std::string LookFolder::placeFor(const std::string& name) {
  const ScopedLock guard(mutex_);
  if (own_.empty()) {
    std::error_code error;
    fs::create_directories(base_, error);
    chmod(base_.c_str(), S_IRWXU);
    own_ = newFolderIn(base_);
    lock_ = lockOf(own_);
  }
  return newFolderIn(own_) + "/" + name;
}

bool LookFolder::seal(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  return file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
         fchmod(file.get(), S_IRUSR) == 0;
}

void LookFolder::clear() {
  const ScopedLock guard(mutex_);
  if (!own_.empty()) {
    std::error_code ignored;
    fs::remove_all(own_, ignored);
    own_.clear();
    lock_ = Descriptor();
  }
}

}  // namespace keldane
