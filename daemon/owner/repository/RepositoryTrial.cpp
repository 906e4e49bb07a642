#include "daemon/owner/repository/RepositoryTrial.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "daemon/engine/Base32.h"
#include "daemon/engine/ExternalDisk.h"

namespace keldane {

namespace {

namespace fs = std::filesystem;

DataFolder trialFolder(const RepositoryFiles& files) {
  fs::create_directories(files.folder().work());
  std::string pattern = files.folder().work() + "/trial-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("The daemon's own folder cannot be written.");
  }
  return {pattern};
}

std::map<std::string, std::string> textsOf(const PropertyList& dictionary) {
  std::map<std::string, std::string> texts;
  for (std::size_t i = 0; i < dictionary.count(); ++i) {
    const auto [key, value] = dictionary.entry(i);
    texts.emplace(key.string(), value.string());
  }
  return texts;
}

}  // namespace

RepositoryRequests::Trial::Trial(Daemon& daemon, const EngineFactory& engine, const PropertyList& request)
    : files_(trialFolder(daemon.files())) {
  configuration_ = daemon.files().configuration().value_or(newComputer());
  configuration_.location = std::string(request["location"].string());
  configuration_.repositoryId.clear();
  configuration_.formerComputer = 0;
  configuration_.formerHighest = 0;
  configuration_.options = textsOf(request["options"]);
  configuration_.fileSystemUuid.clear();
  if (const std::optional<std::string> folder = configuration_.localFolder()) {
    const std::string uuid = fileSystemUuidOf(*folder);
    // A disk that holds the daemon's own files is not treated as an external one.
    configuration_.fileSystemUuid = uuid == fileSystemUuidOf(daemon.files().folder().path) ? "" : uuid;
  }
  std::string key(request["key"].string());
  if (!key.empty()) {
    key = keyTextFrom(key);
  } else {
    key = daemon.files().key();
  }
  begin(engine, key, textsOf(request["environment"]));
}

RepositoryRequests::Trial::Trial(Daemon& daemon, const EngineFactory& engine, const std::string& key)
    : files_(trialFolder(daemon.files())) {
  const std::optional<RepositoryConfig> configuration = daemon.files().configuration();
  if (!configuration) {
    throw std::runtime_error("No repository has been set up yet.");
  }
  configuration_ = *configuration;
  begin(engine, key, daemon.files().environment());
}

void RepositoryRequests::Trial::begin(const EngineFactory& engine, const std::string& key,
                                      const std::map<std::string, std::string>& environment) {
  if (key.empty()) {
    files_.makeKey();
  } else {
    files_.setKey(key);
  }
  files_.setEnvironment(environment);
  files_.setConfiguration(configuration_);
  engine_ = engine(files_);
}

RepositoryRequests::Trial::~Trial() {
  std::error_code ignored;
  fs::remove_all(files_.folder().path, ignored);
}

EngineAnswer RepositoryRequests::Trial::make(EngineJob& job) {
  const EngineAnswer answer = engine_->initialize(job);
  if (answer) {
    configuration_ = files_.configuration().value_or(configuration_);
  }
  return answer;
}

EngineAnswer RepositoryRequests::Trial::makeForCopyOf(const RepositoryFiles& other, EngineJob& job) {
  // The copy also has the former computer's snapshots, so their owner is kept, too.
  const RepositoryConfig before = other.configuration().value_or(RepositoryConfig());
  configuration_.formerComputer = before.formerComputer;
  configuration_.formerHighest = before.formerHighest;
  files_.setConfiguration(configuration_);
  const EngineAnswer answer = engine_->initializeLike(other, job);
  if (answer) {
    configuration_ = files_.configuration().value_or(configuration_);
    return answer;
  }
  return answer.health == Health::otherRepository && adopt(job) ? EngineAnswer() : answer;
}

EngineAnswer RepositoryRequests::Trial::adopt(EngineJob& job) {
  std::string id;
  EngineAnswer answer = engine_->repositoryId(id, job);
  if (answer) {
    configuration_.repositoryId = id;
    files_.setConfiguration(configuration_);
  }
  return answer;
}

void RepositoryRequests::Trial::goOnAs(std::uint32_t computer, std::uint32_t highest, bool takeOver) {
  if (takeOver || computer == configuration_.computerNumber) {
    configuration_.computerNumber = computer;
  } else {
    configuration_.formerComputer = computer;
    configuration_.formerHighest = highest;
  }
  files_.setConfiguration(configuration_);
}

void RepositoryRequests::Trial::replaceIn(const RepositoryFiles& files) const {
  const DataFolder& folder = files.folder();
  const std::string aside = folder.setAside() + "/" + std::to_string(std::time(nullptr));
  fs::create_directories(aside);
  fs::permissions(folder.setAside(), fs::perms::owner_all);
  for (const std::string& file : {folder.configuration(), folder.key(), folder.environment()}) {
    std::error_code ignored;
    fs::copy_file(file, aside + "/" + fs::path(file).filename().string(),
                  fs::copy_options::overwrite_existing, ignored);
  }
  files.setKey(files_.key());
  files.setEnvironment(files_.environment());
  files.setConfiguration(configuration_);
}

std::string keyTextFrom(const std::string& typed) { return keyFromTyping(typed).value_or(typed); }

}  // namespace keldane
