// Small private files that are replaced whole and survive a crash.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldane {

/// Makes the folder and those above it; the folder itself gets mode 0700 when it is new. Throws
/// std::runtime_error.
void makePrivateFolder(const std::string& path);

/// Replaces a file's content at once: whoever reads it sees the old or the new one, also after a crash. Mode
/// 0600. Throws std::runtime_error; the old content is kept then.
void writeDurably(const std::string& path, std::string_view content);

/// The content; absent when there is no such file. Throws std::runtime_error when it cannot be read.
std::optional<std::string> readPrivateFile(const std::string& path);

/// A file of mode 0600 with a name of its own, removed when this goes.
class ScratchFile {
 public:
  /// `folder` is made when it is missing. Throws std::runtime_error.
  ScratchFile(const std::string& folder, std::string_view purpose, std::string_view content);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }

  /// Removes what processes that have ended left in the folder.
  static void sweep(const std::string& folder);

 private:
  std::string path_;
};

}  // namespace keldane
