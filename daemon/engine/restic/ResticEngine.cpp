#include "daemon/engine/restic/ResticEngine.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "daemon/engine/restic/output/ResticFailure.h"
#include "daemon/engine/restic/output/ResticOutput.h"

namespace keldane {
namespace {

/// Whether nothing is in the way of a new repository in a folder: it is not there, or empty.
bool isFree(const std::string& folder) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(folder, error);
  return status.type() == std::filesystem::file_type::not_found ||
         (std::filesystem::is_directory(status) && std::filesystem::is_empty(folder, error) && !error);
}

bool hasConfig(const std::string& folder) {
  std::error_code error;
  return std::filesystem::exists(folder + "/config", error) || error;
}

}  // namespace

ResticEngine::ResticEngine(RepositoryFiles files, std::string program)
    : files_(std::move(files)), program_(std::move(program)) {
  ScratchFile::sweep(files_.folder().work());
}

EngineAnswer ResticEngine::readId(ResticSession& session, std::string& id) {
  std::string text;
  const RunEnd run = session.runForText({"--no-lock", "cat", "config"}, text);
  if (!run.answer) {
    return run.answer;
  }
  id = idFromConfig(text);
  return id.empty() ? answerFor(Health::failed, "it does not tell the repository's id") : EngineAnswer();
}

EngineAnswer ResticEngine::probe(EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  std::string id;
  const EngineAnswer answer = readId(session, id);
  return answer && id != session.configuration().repositoryId ? answerFor(Health::otherRepository) : answer;
}

EngineAnswer ResticEngine::repositoryId(std::string& id, EngineJob& job) {
  ResticSession session = open(Purpose::look, job);
  return session.state() ? readId(session, id) : session.state();
}

EngineAnswer ResticEngine::initialize(EngineJob& job) { return initialize(nullptr, job); }

EngineAnswer ResticEngine::initializeLike(const RepositoryFiles& other, EngineJob& job) {
  return initialize(&other, job);
}

EngineAnswer ResticEngine::initialize(const RepositoryFiles* like, EngineJob& job) {
  ResticSession session = open(Purpose::make, job);
  if (!session.state()) {
    return session.state();
  }
  if (!session.configuration().repositoryId.empty()) {
    return probe(job);
  }
  try {
    return make(session, like, job);
  } catch (const std::runtime_error& error) {
    return {Health::failed, session.secrets().scrubbed(error.what())};
  }
}

/// A crash between making a repository and keeping its id must not leave an unknown repository. So the place
/// is written down first. A repository that is found there afterwards and opens with the key is the one that
/// was begun.
EngineAnswer ResticEngine::make(ResticSession& session, const RepositoryFiles* like, EngineJob& job) {
  const RepositoryConfig& configuration = session.configuration();
  const std::optional<std::string> folder = configuration.localFolder();
  const bool wasBegun = readPrivateFile(markOfMaking()) == configuration.location;
  std::string id;
  if (!folder || hasConfig(*folder)) {
    const EngineAnswer there = readId(session, id);
    if (there.health == Health::ready || (there.health == Health::wrongKey && !wasBegun)) {
      if (!there || !wasBegun) {
        return answerFor(Health::otherRepository);
      }
    } else if (there.health != Health::missing) {
      return there;
    }
  } else if (!wasBegun && !isFree(*folder)) {
    return answerFor(Health::failed,
                     "the folder " + *folder + " is not empty, so no repository is made in it");
  }
  if (id.empty()) {
    if (folder && wasBegun) {
      // The config file is written last, so nothing was ever stored with these keys. They are removed,
      // because they would be in the way of new ones.
      std::error_code error;
      std::filesystem::remove_all(*folder + "/keys", error);
    }
    std::vector<std::string> arguments = {"init"};
    if (like != nullptr) {
      if (const EngineAnswer answer = session.addSource(*like, arguments); !answer) {
        return answer;
      }
      arguments.emplace_back("--copy-chunker-params");
    }
    writeDurably(markOfMaking(), configuration.location);
    const RunEnd run = session.run(arguments);
    EngineAnswer answer = run.answer ? readId(session, id) : run.answer;
    if (!answer) {
      return answer;
    }
  }
  if (job.cancelled) {
    return answerFor(Health::cancelled);
  }
  RepositoryConfig made = configuration;
  made.repositoryId = id;
  files_.setConfiguration(made);
  ::unlink(markOfMaking().c_str());
  return {};
}

}  // namespace keldane
