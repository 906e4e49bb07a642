// A set of many paths in little memory.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace keldane {

/// Absolute paths, folder by folder: each folder is kept once, with the names in it. A path takes its name
/// and one byte, and at most as much again. Used by one thread at a time.
class PathsByFolder {
  // The names of each folder, each with a zero byte after it.
  using Folders = std::map<std::string, std::string, std::less<>>;

 public:
  PathsByFolder() = default;
  PathsByFolder(PathsByFolder&&) = default;
  PathsByFolder& operator=(PathsByFolder&&) = default;
  PathsByFolder(const std::vector<std::string>& paths);  // NOLINT(google-explicit-constructor)

  /// A path that is added twice is there twice.
  void add(std::string_view path);
  std::size_t size() const { return size_; }
  /// Quick for paths that are asked for folder by folder.
  bool contains(std::string_view path) const;

  /// Reads the paths of a set one after the other, each folder's in the order in which they were added. The
  /// set outlives it and does not change meanwhile.
  class Reader {
   public:
    explicit Reader(const PathsByFolder& paths) : folder_(paths.folders_.begin()) {}
    /// The next path. There must be one.
    std::string next();

   private:
    Folders::const_iterator folder_;
    std::size_t offset_ = 0;
  };

 private:
  Folders folders_;
  std::size_t size_ = 0;
  // The folder that was asked about last (empty: none), and its names in order. They lie in folders_.
  mutable std::string asked_;
  mutable std::vector<std::string_view> names_;
};

}  // namespace keldane
