#include "daemon/engine/restic/PackFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "daemon/engine/process/ChildProcess.h"
#include "platform/files/Descriptor.h"

namespace keldane {
namespace {

/// A pack's name is the SHA-256 of its bytes.
bool isIntact(const std::string& file, const std::string& pack, EngineJob& job) {
  std::string digest;
  ChildCommand command;
  command.arguments = {"/usr/bin/sha256sum", "--", file};
  command.environment = childEnvironment({});
  command.outputLine = [&](std::string_view line) { digest = line.substr(0, line.find(' ')); };
  return runChild(command, job).exitStatus == 0 && digest == pack;
}

void syncFile(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file || ::fsync(file.get()) != 0) {
    throw std::runtime_error("The disk does not take a file of the repository.");
  }
}

}  // namespace

bool isIdOrBeginning(std::string_view id) {
  return id.size() >= 8 && id.size() <= 64 &&
         id.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

bool isWholeId(std::string_view id) { return id.size() == 64 && isIdOrBeginning(id); }

std::string fileOfPack(const std::string& repository, const std::string& pack) {
  return repository + "/data/" + pack.substr(0, 2) + "/" + pack;
}

bool bringBackFromCache(const std::string& repository, const std::string& cache, const std::string& pack,
                        EngineJob& job) {
  const std::string kept = fileOfPack(cache, pack);
  const std::string target = fileOfPack(repository, pack);
  const std::string unfinished = target + ".unfinished";
  std::error_code error;
  if (!std::filesystem::is_regular_file(kept, error) || !isIntact(kept, pack, job)) {
    return false;
  }
  std::filesystem::copy_file(kept, unfinished, std::filesystem::copy_options::overwrite_existing, error);
  if (!error) {
    ::chmod(unfinished.c_str(), S_IRUSR);
    syncFile(unfinished);
    std::filesystem::rename(unfinished, target, error);
  }
  if (error) {
    std::error_code ignored;
    std::filesystem::remove(unfinished, ignored);
    throw std::runtime_error("A damaged file cannot be replaced: " + error.message() + ".");
  }
  return true;
}

void moveAside(const std::string& file, const std::string& aside) {
  const std::string target = aside + "/" + std::filesystem::path(file).filename().string();
  std::error_code error;
  std::filesystem::rename(file, target, error);
  if (error == std::errc::cross_device_link) {
    std::filesystem::copy_file(file, target, std::filesystem::copy_options::overwrite_existing, error);
    if (error) {
      std::filesystem::remove(target, error);  // an incomplete copy is of no use
    }
    std::filesystem::remove(file, error);
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    throw std::runtime_error("A damaged file cannot be taken away: " + error.message() + ".");
  }
}

std::uint64_t sizeOfFolder(const std::string& folder) {
  std::uint64_t bytes = 0;
  std::error_code error;
  constexpr auto kOptions = std::filesystem::directory_options::skip_permission_denied;
  for (std::filesystem::recursive_directory_iterator entry(folder, kOptions, error), end;
       !error && entry != end; entry.increment(error)) {
    struct stat status {};
    if (::lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      bytes += static_cast<std::uint64_t>(status.st_size);
    }
  }
  return bytes;
}

}  // namespace keldane
