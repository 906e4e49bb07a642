#include "daemon/engine/DurableFile.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "platform/files/Descriptor.h"
#include "platform/files/FileContents.h"

namespace keldane {
namespace {

constexpr std::string_view kScratchPrefix = "scratch.";

[[noreturn]] void throwFor(const std::string& what, const std::string& path, int error) {
  throw std::runtime_error(what + " " + path + ": " + std::generic_category().message(error));
}

void writeAll(int descriptor, std::string_view content, const std::string& path) {
  while (!content.empty()) {
    const ssize_t written = ::write(descriptor, content.data(), content.size());
    if (written < 0 && errno != EINTR) {
      throwFor("Cannot write", path, errno);
    }
    content.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
}

void syncFolderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  const Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor || ::fsync(descriptor.get()) != 0) {
    throwFor("Cannot make lasting what is in", folder, errno);
  }
}

/// Removes the file at its path in the end, unless the path was cleared.
struct UnfinishedFile {
  std::string path;
  ~UnfinishedFile() {
    if (!path.empty()) {
      ::unlink(path.c_str());
    }
  }
};

}  // namespace

void makePrivateFolder(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  if (::mkdir(path.c_str(), S_IRWXU) == 0) {
    return;
  }
  struct stat status {};
  if (errno != EEXIST || ::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    throwFor("Cannot make the folder", path, errno);
  }
}

void writeDurably(const std::string& path, std::string_view content) {
  UnfinishedFile unfinished{path + ".XXXXXX"};
  const Descriptor file(::mkostemp(unfinished.path.data(), O_CLOEXEC));  // with mode 0600
  if (!file) {
    const int error = errno;
    unfinished.path.clear();
    throwFor("Cannot write", path, error);
  }
  writeAll(file.get(), content, path);
  if (::fsync(file.get()) != 0 || ::rename(unfinished.path.c_str(), path.c_str()) != 0) {
    throwFor("Cannot write", path, errno);
  }
  unfinished.path.clear();
  syncFolderOf(path);
}

std::optional<std::string> readPrivateFile(const std::string& path) {
  int error = 0;
  const std::optional<Bytes> bytes = readFile(path, &error);
  if (bytes) {
    return std::string(bytes->begin(), bytes->end());
  }
  if (error == ENOENT) {
    return std::nullopt;
  }
  throwFor("Cannot read", path, error);
}

ScratchFile::ScratchFile(const std::string& folder, std::string_view purpose, std::string_view content)
    : path_(folder + "/" + std::string(kScratchPrefix) + std::to_string(::getpid()) + "." +
            std::string(purpose) + ".XXXXXX") {
  makePrivateFolder(folder);
  const Descriptor file(::mkostemp(path_.data(), O_CLOEXEC));
  if (!file) {
    throwFor("Cannot make a file in", folder, errno);
  }
  UnfinishedFile unfinished{path_};
  writeAll(file.get(), content, path_);
  unfinished.path.clear();
}

ScratchFile::~ScratchFile() { ::unlink(path_.c_str()); }

void ScratchFile::sweep(const std::string& folder) {
  std::error_code error;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    pid_t owner = 0;
    if (!name.starts_with(kScratchPrefix) ||
        std::from_chars(name.data() + kScratchPrefix.size(), name.data() + name.size(), owner).ec !=
            std::errc() ||
        owner <= 0) {
      continue;
    }
    if (::kill(owner, 0) != 0 && errno == ESRCH) {
      ::unlink(entry->path().c_str());
    }
  }
}

}  // namespace keldane
