// A fake daemon for one test, with files that have rules.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Common/nodes/FileNode.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/UserPreferences.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane::testing {

/// Knows the files that it is given. A rule changes only its own path, and nothing at "/barred".
class DaemonFixture : public ::testing::Test {
 protected:
  void listen() {
    daemon_ = std::make_unique<FakeDaemon>(bundle_.daemonPath());
    daemon_->answer("dictionaryForPath:", [this](const PropertyList::Array& arguments) {
      const std::lock_guard guard(mutex_);
      const auto found = files_.find(std::string(arguments[0].string()));
      return found == files_.end() ? PropertyList() : entry(*found);
    });
    daemon_->answer("childrenDictionariesForPath:", [this](const PropertyList::Array& arguments) {
      return childrenOf(std::string(arguments[0].string()));
    });
    for (const auto& [selector, flags] :
         std::map<std::string, std::uint32_t>{{"addFileToBackup:", 3}, {"removeFileFromBackup:", 2}}) {
      daemon_->answer(selector, [this, flags = flags](const PropertyList::Array& arguments) {
        const std::lock_guard guard(mutex_);
        const std::string path(arguments[0].string());
        if (files_.contains(path) && path != "/barred") {
          files_[path].flags = flags;
        }
        return PropertyList();
      });
    }
    daemon_->answer("daemonState", PropertyList::dictionary({{"statusString", "Up to date"}}));
  }

  void has(const std::string& path, bool isFolder, std::uint32_t flags = simple_flags::kEnabled) {
    const std::lock_guard guard(mutex_);
    files_[path] = {isFolder, flags};
  }
  void loses(const std::string& path) {
    const std::lock_guard guard(mutex_);
    files_.erase(path);
  }

  UserPreferences user_;
  ClientBundle bundle_;
  std::unique_ptr<FakeDaemon> daemon_;

 private:
  struct File {
    bool isFolder;
    std::uint32_t flags;
  };

  static PropertyList entry(const std::pair<const std::string, File>& file) {
    const std::string& path = file.first;
    return PropertyList::dictionary({{"fileName", path == "/" ? path : path.substr(path.rfind('/') + 1)},
                                     {"path", path},
                                     {"isDirectory", PropertyList::boolean(file.second.isFolder)},
                                     {"simpleFlags", file.second.flags}});
  }

  PropertyList childrenOf(const std::string& folder) {
    const std::lock_guard guard(mutex_);
    const std::string above = folder == "/" ? folder : folder + '/';
    if (folder != "/" && !files_.contains(folder)) {
      return {};
    }
    PropertyList::Array entries;
    for (const auto& file : files_) {
      if (file.first.size() > above.size() && file.first.starts_with(above) &&
          file.first.find('/', above.size()) == std::string::npos) {
        entries.push_back(entry(file));
      }
    }
    return PropertyList::array(entries);
  }

  std::mutex mutex_;
  std::map<std::string, File> files_;  // guarded by the mutex
};

}  // namespace keldane::testing
