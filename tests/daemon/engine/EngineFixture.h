// A local repository for one test, with the real storage program.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemon/engine/restic/ResticEngine.h"
#include "platform/files/Descriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/daemon/QuickRepository.h"

namespace keldane {

inline std::ostream& operator<<(std::ostream& out, const EngineAnswer& answer) {
  return out << healthWord(answer.health) << " \"" << answer.detail << '"';
}

}  // namespace keldane

namespace keldane::testing {

/// The observer's calls while something was stored.
struct Told {
  std::vector<std::string> took, unchanged, unreadable, reasons;
  int progress = 0;
  StoreObserver observer() {
    StoreObserver observer;
    observer.took = [this](const std::string& path, bool isUnchanged) {
      took.push_back(path);
      if (isUnchanged) {
        unchanged.push_back(path);
      }
    };
    observer.couldNotRead = [this](const std::string& path, const std::string& reason) {
      unreadable.push_back(path);
      reasons.push_back(reason);
    };
    observer.progress = [this](std::uint64_t, std::uint64_t, const std::string&) { ++progress; };
    return observer;
  }
};

class EngineFixture : public ::testing::Test {
 protected:
  /// The data folder is "data", the repository "data/repository", and the files are in "home".
  EngineFixture() {
    std::filesystem::create_directory(home());
    RepositoryConfig configuration;
    configuration.location = data().localRepository();
    configuration.hostName = "testhost";
    configuration.computerNumber = 7;
    files().setConfiguration(configuration);
    files().makeKey();
  }

  DataFolder data() const { return {folder_ / "data"}; }
  /// Writes a file that another process may have left among the engine's temporary files.
  void leaveInWork(const std::string& name, const std::string& content) const {
    const std::filesystem::path file = std::filesystem::path(data().work()) / name;
    folder_.write(file.lexically_relative(folder_.path()), content);
  }
  RepositoryFiles files() const { return RepositoryFiles(data()); }
  std::string home() const { return folder_ / "home"; }
  std::string repository() const { return data().localRepository(); }
  std::string write(const std::string& name, const std::string& content) const {
    return folder_.write("home/" + name, content);
  }
  /// Puts a repository in place that opens quickly.
  void initialize() const { QuickRepository::make(files()); }
  std::string id() const { return files().configuration()->repositoryId; }

  template <class Change>
  void configure(Change change) const {
    RepositoryConfig configuration = files().configuration().value();
    change(configuration);
    files().setConfiguration(configuration);
  }

  StoreAnswer store(BackupEngine& engine, std::vector<std::string> targets,
                    std::vector<std::string> tags = {}, const std::string& parent = {}) {
    told_ = Told();
    StoreRequest request{std::move(targets), std::move(tags), parent};
    const StoreObserver observer = told_.observer();
    return engine.store(request, observer, job_);
  }
  StoreAnswer store(std::vector<std::string> targets, std::vector<std::string> tags = {},
                    const std::string& parent = {}) {
    return store(engine_, std::move(targets), std::move(tags), parent);
  }

  /// A file's stored bytes; absent when the answer is not ready, which is kept.
  std::optional<std::string> fetch(const std::string& snapshot, const std::string& path) {
    const std::string target = folder_ / "fetched";
    const Descriptor file(::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    answer_ = engine_.fetch(snapshot, path, file.get(), job_);
    return answer_ ? std::optional(readWhole(target)) : std::nullopt;
  }

  /// A program that runs this line in a shell; "$@" are the arguments.
  std::string script(const std::string& line) const {
    std::string path = folder_.write("program", "#!/bin/sh\n" + line + "\n");
    ::chmod(path.c_str(), 0755);
    return path;
  }
  /// restic without the capabilities that let root read everything.
  std::string modestRestic() const {
    return script(::geteuid() == 0
                      ? "exec setpriv --bounding-set=-dac_override,-dac_read_search restic \"$@\""
                      : "exec restic \"$@\"");
  }
  /// The files of the repository that hold content, the largest first.
  std::vector<std::filesystem::path> packs() const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(repository() + "/data")) {
      if (entry.is_regular_file()) {
        found.push_back(entry.path());
      }
    }
    std::ranges::sort(found, std::ranges::greater(),
                      [](const auto& path) { return std::filesystem::file_size(path); });
    return found;
  }
  /// Bytes that cannot be compressed.
  static std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::ifstream("/dev/urandom", std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
  }
  static void damage(const std::filesystem::path& file) {
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(10);
    stream << "damage";
  }
  std::vector<std::string> leftInWork() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(data().work())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  TemporaryFolder folder_;
  EngineJob job_;
  ResticEngine engine_{files()};
  Told told_;
  EngineAnswer answer_;
};

}  // namespace keldane::testing
