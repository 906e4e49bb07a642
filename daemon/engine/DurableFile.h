// Small private files that are replaced whole and survive a crash.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldane {

/// Makes the folder and those above it; the folder itself gets mode 0700 when it is new. Throws
/// std::runtime_error.
void makePrivateFolder(const std::string& path);

/// Replaces a file's content atomically: a reader sees the old or the new content, even after a crash. The
/// mode is 0600. Throws std::runtime_error; the old content is kept then.
void writeDurably(const std::string& path, std::string_view content);

/// The content; absent when there is no such file. Throws std::runtime_error when it cannot be read.
std::optional<std::string> readPrivateFile(const std::string& path);

/// A file of mode 0600 with a unique name. The destructor removes it.
class ScratchFile {
 public:
  /// `folder` is made when it is missing. Throws std::runtime_error.
  ScratchFile(const std::string& folder, std::string_view purpose, std::string_view content);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }

  /// Removes the files that ended processes left in the folder.
  static void sweep(const std::string& folder);

 private:
  std::string path_;
};

}  // namespace keldane
