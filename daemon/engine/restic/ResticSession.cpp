#include "daemon/engine/restic/ResticSession.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "daemon/engine/ExternalDisk.h"
#include "daemon/engine/restic/output/ResticFailure.h"
#include "daemon/engine/restic/output/ResticLines.h"
#include "daemon/engine/restic/program/SftpCommand.h"

namespace keldane {
namespace {

/// Thrown to end a run that has no chance.
struct Hopeless {};

void addOption(std::vector<std::string>& arguments, const std::string& name, const std::string& value) {
  arguments.emplace_back("-o");
  arguments.emplace_back(name).append("=").append(value);
}

bool isRefused(const std::string& path, int access) {
  return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) != 0 &&
         (errno == EACCES || errno == EROFS || errno == EPERM);
}

}  // namespace

ResticSession::ResticSession(const RepositoryFiles& files, ResticProgram& program, Purpose purpose,
                             EngineJob& job)
    : files_(files), job_(job) {
  if (job.cancelled) {
    state_ = answerFor(Health::cancelled);
    return;
  }
  try {
    state_ = prepare(purpose);
    if (state_) {
      program_ = program.find(job);
      state_ = program_.answer;
    }
    if (state_) {
      begin_.insert(begin_.begin(), program_.path);
    }
  } catch (const std::runtime_error& error) {
    state_ = {Health::failed, secrets_.scrubbed(error.what())};
  }
}

EngineAnswer ResticSession::prepare(Purpose purpose) {
  const std::optional<RepositoryConfig> configuration = files_.configuration();
  if (!configuration || configuration->location.empty() ||
      (purpose == Purpose::use && configuration->repositoryId.empty())) {
    return answerFor(Health::notSetUp);
  }
  configuration_ = *configuration;
  const std::string key = files_.key();
  const Environment environment = files_.environment();
  secrets_ = Secrets(configuration_, key, environment);
  if (key.empty()) {
    return answerFor(Health::wrongKey);
  }
  const std::optional<std::string> folder = configuration_.localFolder();
  if (folder && !configuration_.fileSystemUuid.empty() &&
      !isOnFileSystem(*folder, configuration_.fileSystemUuid)) {
    return answerFor(Health::notConnected);
  }
  if (folder) {
    const EngineAnswer seen = lookAtFolder(*folder, purpose);
    if (!seen) {
      return seen;
    }
  }
  environment_ = childEnvironment(environment);
  environment_["RESTIC_PROGRESS_FPS"] = "4";
  location_ = scratch("location", configuration_.location);
  makePrivateFolder(files_.folder().cache());
  begin_ = {"--repository-file",   location_->path(), "--password-file",
            files_.folder().key(), "--cache-dir",     files_.folder().cache()};
  if (const auto certificate = environment.find("RESTIC_CACERT"); certificate != environment.end()) {
    begin_.insert(begin_.end(), {"--cacert", certificate->second});  // only new versions read the variable
  }
  Environment options = configuration_.options;
  const std::optional<std::string> ssh = sftpCommand(configuration_.location);
  if (ssh && !options.contains("sftp.args")) {
    options.try_emplace("sftp.command", *ssh);
  }
  for (const auto& [name, value] : options) {
    addOption(begin_, name, value);
  }
  return {};
}

/// Checks a repository in a folder first, because the storage program would retry for most of a minute when
/// access is refused or the folder is gone.
EngineAnswer ResticSession::lookAtFolder(const std::string& folder, Purpose purpose) const {
  struct stat status {};
  if (purpose == Purpose::make) {
    return {};
  }
  if (::stat((folder + "/config").c_str(), &status) != 0) {
    const std::string reason = folder + ": " + std::generic_category().message(errno);
    switch (errno) {
      case ENOENT:
      case ENOTDIR:
        return answerFor(Health::missing, "there is none in " + folder);
      case EACCES:
        return answerFor(Health::denied, reason);
      case EIO:
        return answerFor(Health::damaged, reason);
      default:
        return answerFor(Health::unreachable, reason);
    }
  }
  // A repository without its keys would seem to have another key, and one without its list of snapshots would
  // seem to be empty.
  for (const char* part : {"/keys", "/snapshots"}) {
    if (::stat((folder + part).c_str(), &status) != 0 && errno == ENOENT) {
      return answerFor(Health::missing, "a part of it is not there any more, " + folder + part);
    }
  }
  for (const auto& [name, access] : {std::pair("/config", R_OK), std::pair("/locks", R_OK | W_OK | X_OK)}) {
    if (isRefused(folder + name, access)) {
      return answerFor(Health::denied, folder + name + ": " + std::generic_category().message(errno));
    }
  }
  return {};
}

EngineAnswer ResticSession::addSource(const RepositoryFiles& source, std::vector<std::string>& arguments) {
  const std::optional<RepositoryConfig> configuration = source.configuration();
  const std::string key = source.key();
  if (!configuration || configuration->location.empty() || key.empty()) {
    return answerFor(Health::notSetUp);
  }
  const Environment environment = source.environment();
  const Environment own = files_.environment();
  for (const auto& [name, value] : environment) {
    const auto found = own.find(name);
    if (found != own.end() && found->second != value) {
      return {Health::failed,
              "Both places need " + name +
                  ", with another value each, and one run of the storage program has room for "
                  "only one. What is stored cannot be copied between them."};
    }
    environment_[name] = value;
  }
  for (const auto& [name, value] : configuration->options) {
    const auto found = configuration_.options.find(name);
    if (found != configuration_.options.end() && found->second != value) {
      return {Health::failed, "Both places need the option " + name +
                                  ", with another value each. What is stored cannot be copied between them."};
    }
  }
  secrets_.add(Secrets(*configuration, key, environment));
  addSourceOptions(*configuration);
  sourceLocation_ = scratch("source", configuration->location);
  arguments.insert(arguments.end(), {"--from-repository-file", sourceLocation_->path(),
                                     "--from-password-file", source.folder().key()});
  return {};
}

/// A configured command for SSH names one server, and a run can have only one such command. With two servers,
/// each is reached with the storage program's own command.
void ResticSession::addSourceOptions(const RepositoryConfig& source) {
  for (const auto& [name, value] : source.options) {
    if (!configuration_.options.contains(name)) {
      addOption(begin_, name, value);
    }
  }
  const std::optional<std::string> ssh = sftpCommand(source.location);
  if (!ssh || source.options.contains("sftp.args") || source.options.contains("sftp.command")) {
    return;
  }
  const std::optional<std::string> own = sftpCommand(configuration_.location);
  if (!own) {
    addOption(begin_, "sftp.command", *ssh);
  } else if (*own != *ssh) {
    const auto option = std::find(begin_.begin(), begin_.end(), "sftp.command=" + *own);
    if (option != begin_.end()) {
      begin_.erase(option - 1, option + 1);
    }
  }
}

RunEnd ResticSession::run(const std::vector<std::string>& arguments, const RunOutput& output) {
  ChildCommand command;
  command.arguments = begin_;
  command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
  command.environment = environment_;
  command.workingFolder = output.workingFolder;
  command.standardOutput = output.descriptor;
  command.outputLine = output.outputLine;
  RunEnd run;
  constexpr std::size_t kMostErrors = std::size_t{64} << 10;
  const bool isFolder = configuration_.localFolder().has_value();
  const bool isSftp = configuration_.location.starts_with("sftp:");
  command.errorLine = [&](std::string_view line) {
    if (!output.errorLine || !output.errorLine(line)) {
      run.errors.append(fatalText(line)).push_back('\n');
      if (run.errors.size() > 2 * kMostErrors) {
        run.errors.erase(0, kMostErrors);
      }
      if (triesInVain(line, isFolder, isSftp)) {
        throw Hopeless();
      }
    }
  };
  ChildEnd end;
  try {
    end = runChild(command, job_);
  } catch (const Hopeless&) {
    end.exitStatus = 1;
  }
  run.exitStatus = end.exitStatus;
  run.answer = judgedEnd(end, run.errors, secrets_);
  return run;
}

RunEnd ResticSession::runForText(const std::vector<std::string>& arguments, std::string& text) {
  text.clear();
  RunOutput output;
  output.outputLine = [&](std::string_view line) { text.append(line).push_back('\n'); };
  return run(arguments, output);
}

std::unique_ptr<ScratchFile> ResticSession::scratch(std::string_view purpose,
                                                    std::string_view content) const {
  return std::make_unique<ScratchFile>(files_.folder().work(), purpose, content);
}

}  // namespace keldane
