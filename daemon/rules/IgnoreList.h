// The list of files and folders that are left out of the backup unless a user's rule includes them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace keldane {

/// A sign on the disk that an item should not be backed up.
enum class Mark : std::uint8_t {
  none,
  cacheTag,         ///< a folder with a valid CACHEDIR.TAG
  attribute,        ///< the extended attribute user.xdg.robots.backup is "false"
  otherFileSystem,  ///< a mounted file system of another computer, of a program or of the kernel
};

/// A list of lines, which a person can see and change. "@cache-tag", "@attribute" and "@other-file-systems"
/// switch the marks on. Every other line is a pattern of `*`, `?` and `[a-z]`, none of which stands for a
/// slash: one that begins with "/" is for whole paths, one that begins with "~/" for paths in a home folder,
/// any other for the ends of paths. With a slash at its end it is for folders alone. Empty lines and lines
/// that begin with "#" are ignored. Objects of this class are plain values.
class IgnoreList {
 public:
  /// The default list: the three marks, and the caches and trash of the desktop.
  static std::string_view standard();

  IgnoreList() : IgnoreList(standard()) {}
  explicit IgnoreList(std::string_view text);

  const std::string& text() const { return text_; }
  bool heeds(Mark mark) const { return mark != Mark::none && marks_[static_cast<std::size_t>(mark)]; }
  /// The line whose pattern a path matches; empty when there is none.
  std::string_view match(std::string_view path, bool isDirectory) const;
  /// Whether there are patterns that could match a file.
  bool isForFiles() const { return isForFiles_; }

 private:
  struct Pattern {
    std::string line;
    std::string glob;
    std::string begin;  // the beginning of every name that matches: the letters before the first special one
    std::size_t names = 0;  // number of names at the end of a path that are compared; 0: all
    bool foldersOnly = false;
  };
  void addPattern(std::string_view line, const std::string& glob);

  std::string text_;
  bool marks_[4] = {};
  bool isForFiles_ = false;
  std::vector<Pattern> patterns_;
};

/// The line of a list that switches a mark on.
std::string_view lineOf(Mark mark);

}  // namespace keldane
