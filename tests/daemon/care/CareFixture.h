// The upkeep of a real repository that belongs to one test.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "daemon/backup/batch/BatchRun.h"
#include "daemon/care/RepositoryCare.h"
#include "daemon/engine/restic/ResticEngine.h"
#include "platform/files/Descriptor.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/daemon/QuickRepository.h"

namespace keldane::testing {

/// A catalogue and the parts that work on it. Several can use one repository, one after the other.
struct Keeping {
  Keeping(const std::string& store, const DataFolder& data, const CareTimes& times = {})
      : catalogue(store), files(data), care(catalogue, rules, engine, files, watch, times) {}

  Store catalogue;
  RepositoryFiles files;
  RuleBook rules{catalogue, "/", {}};
  ResticEngine engine{files};
  RepositoryWatch watch;
  PendingFiles pending;
  Scanner scanner{catalogue, rules, pending};
  RepositoryCare care;
  EngineJob job;
};

class RepositoryCareTest : public ::testing::Test {
 protected:
  RepositoryCareTest() {
    const RepositoryFiles files(DataFolder{folder_ / "data"});
    RepositoryConfig configuration = newComputer();
    configuration.location = folder_ / "data/repository";
    files.setConfiguration(configuration);
    QuickRepository::make(files);
    folder_.write("files/a", "first");
    folder_.write("files/sub/b", std::string(100'000, 'b'));
    begin();
    here_->rules.setRule(folder_ / "files", true);
  }
  /// Starts a new daemon, with another catalogue if one is named.
  void begin(const std::string& store = "store.sqlite") {
    here_.reset();
    here_ = std::make_unique<Keeping>(folder_ / store, DataFolder{folder_ / "data"});
    const EngineAnswer answer = here_->care.makeReady(here_->job);
    ASSERT_TRUE(answer) << answer.detail;
  }
  /// Stores the files that have changed, or all files if `full`.
  BatchEnd store(bool full = false) {
    const std::atomic<bool> goOn = false;
    here_->scanner.scan(folder_ / "files", goOn);
    Batch batch;
    batch.full = full;
    here_->pending.visit([&](const PendingFiles::File& file) {
      batch.files.push_back({file.path, fileStateOf(*statusOf(file.path)), false, 0, 0});
      return true;
    });
    BatchRun run(here_->catalogue, here_->rules, here_->engine, here_->files, here_->scanner, here_->pending);
    const BatchEnd end = run.run(batch, here_->job, [](std::uint64_t, std::uint64_t, const std::string&) {});
    EXPECT_TRUE(end.answer) << end.answer.detail;
    return end;
  }
  std::string file(const std::string& name) const { return folder_ / ("files/" + name); }
  std::vector<VersionRecord> versions(const std::string& name) {
    return here_->catalogue.versions(file(name));
  }
  /// The content of a version, fetched from the repository.
  std::string fetched(const VersionRecord& version, const std::string& name) {
    const std::string copy = folder_.write("fetched", "");
    const Descriptor out(open(copy.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_TRUE(here_->engine.fetch(version.snapshot, version.prefix + file(name), out.get(), here_->job));
    return readWhole(copy);
  }
  /// Changes bytes in the middle of every large pack.
  void damage() const {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(folder_ / "data/repository/data")) {
      if (entry.is_regular_file()) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_write,
                                     std::filesystem::perm_options::add);
        std::fstream pack(entry.path(), std::ios::in | std::ios::out | std::ios::binary);
        const std::string rubbish(entry.file_size() / 2, '?');
        pack.write(rubbish.data(), static_cast<std::streamsize>(rubbish.size()));
      }
    }
  }

  /// The largest pack, which holds the bytes that were stored last if these are the most.
  std::string largestPack() const {
    std::filesystem::path largest;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(folder_ / "data/repository/data")) {
      if (entry.is_regular_file() &&
          (largest.empty() || entry.file_size() > std::filesystem::file_size(largest))) {
        largest = entry.path();
      }
    }
    return largest.string();
  }

  TemporaryFolder folder_;
  std::unique_ptr<Keeping> here_;
};

}  // namespace keldane::testing
