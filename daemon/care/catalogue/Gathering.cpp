#include "daemon/care/catalogue/Gathering.h"

#include <filesystem>
#include <map>

#include "daemon/backup/batch/Manifest.h"
#include "daemon/scan/disk/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

// The limit of bytes that are on the disk meanwhile.
constexpr std::uint64_t kMostGathered = std::uint64_t{1} << 30;

}  // namespace

EngineAnswer Gathering::run(double now, const Store::Retention& retention, EngineJob& job) {
  const Versions versions = store_.gatherable(now, retention, kMostGathered);
  if (versions.empty()) {
    return {};
  }
  const std::uint32_t number = store_.takeNumber();
  const std::string folder = files_.folder().work() + "/gathered-" + std::to_string(number);
  EngineAnswer answer;
  try {
    fs::create_directories(folder);
    answer = fetch(versions, folder, job);
    answer = answer ? storeAgain(versions, folder, number, now, job) : answer;
  } catch (const std::exception& error) {
    answer = {Health::failed, error.what()};
  }
  std::error_code ignored;
  fs::remove_all(folder, ignored);
  return answer;
}

EngineAnswer Gathering::fetch(const Versions& versions, const std::string& folder, EngineJob& job) {
  std::map<std::string, std::vector<std::string>> bySnapshot;
  for (const auto& [path, version] : versions) {
    bySnapshot[version.snapshot].push_back(version.prefix + path);
  }
  for (const auto& [snapshot, paths] : bySnapshot) {
    std::vector<std::string> problems;
    const EngineAnswer answer = engine_.restore(snapshot, paths, folder, problems, job);
    if (!answer && answer.health != Health::damaged) {
      return answer;
    }
    for (const std::string& problem : problems) {
      systemLog("An old version could not be gathered: %@", problem);
    }
  }
  for (const auto& [path, version] : versions) {
    std::string fetched = folder;
    fetched.append(version.prefix).append(path);
    if (!version.prefix.empty() && statusOf(fetched)) {
      const std::string plain = std::string(folder).append(path);
      fs::create_directories(fs::path(plain).parent_path());
      fs::rename(fetched, plain);
    }
  }
  return {};
}

EngineAnswer Gathering::storeAgain(const Versions& versions, const std::string& folder, std::uint32_t number,
                                   double now, EngineJob& job) {
  std::vector<std::pair<std::string, std::uint32_t>> gathered;
  std::vector<ManifestFile> files;
  for (const auto& [path, version] : versions) {
    const std::optional<struct stat> status = statusOf(folder + path);
    if (status && static_cast<std::uint64_t>(status->st_size) == version.size) {
      gathered.emplace_back(path, version.version);
      files.push_back({path, version, version.version, version.date});
    }
  }
  if (gathered.empty()) {
    return {};
  }
  ManifestHead head;
  const std::optional<RepositoryConfig> configuration = files_.configuration();
  head.computerNumber = configuration ? configuration->computerNumber : 0;
  head.number = number;
  head.date = now;
  head.prefix = folder;
  head.rules = store_.rules();
  head.types = store_.types();
  head.settings = store_.values(Store::Table::settings);
  head.profile = store_.values(Store::Table::profile);
  const std::string manifest = folder + "/" + kManifestName;
  writeManifest(manifest, head, [&](const std::function<void(const ManifestFile&)>& write) {
    for (const ManifestFile& file : files) {
      write(file);
    }
  });
  StoreRequest request;
  request.targets = {folder};
  request.tags = {"keldane", "number:" + std::to_string(number), "gathered"};
  StoreObserver observer;
  observer.took = [](const std::string&, bool) {};
  observer.couldNotRead = [](const std::string&, const std::string&) {};
  observer.progress = [](std::uint64_t, std::uint64_t, const std::string&) {};
  const StoreAnswer answer = engine_.store(request, observer, job);
  if (!answer || answer.someUnreadable || answer.snapshot.empty()) {
    return answer;
  }
  store_.addGathered({number, answer.snapshot, now, false, folder}, gathered);
  return answer;
}

}  // namespace keldane
