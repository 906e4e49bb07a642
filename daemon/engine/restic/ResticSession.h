// One call of the engine: the data of the repository and the runs of the storage program.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "daemon/engine/DurableFile.h"
#include "daemon/engine/RepositoryConfig.h"
#include "daemon/engine/Secrets.h"
#include "daemon/engine/process/ChildProcess.h"
#include "daemon/engine/restic/program/ResticProgram.h"

namespace keldane {

/// The receivers of a run's output.
struct RunOutput {
  std::function<void(std::string_view line)> outputLine;
  /// Whether the line is about one item and so says nothing about the repository.
  std::function<bool(std::string_view line)> errorLine;
  int descriptor = -1;  ///< takes standard output instead
  std::string workingFolder = "/";
};

/// The end of one run.
struct RunEnd {
  EngineAnswer answer;
  int exitStatus = -1;
  std::string errors;  ///< the lines of standard error that are not about one item; may hold secrets
};

/// Reads the configuration, checks whether the repository can be there, and runs the storage program with the
/// location and the key in files and the configured environment. It lives on the stack of one call.
class ResticSession {
 public:
  enum class Purpose {
    use,   ///< the repository was made or named before
    look,  ///< whether its id is known does not matter
    make   ///< neither its id nor its presence matters
  };
  ResticSession(const RepositoryFiles& files, ResticProgram& program, Purpose purpose, EngineJob& job);

  /// `ready`, or the reason why nothing can be run.
  const EngineAnswer& state() const { return state_; }
  const RepositoryConfig& configuration() const { return configuration_; }
  const Secrets& secrets() const { return secrets_; }
  unsigned minorVersion() const { return program_.minor; }
  std::string computerTag() const { return "computer:" + std::to_string(configuration_.computerNumber); }

  /// Lets runs also read another repository, and adds the arguments that name it. Not ready when the two
  /// repositories need different credentials of one kind, because a run can have only one.
  EngineAnswer addSource(const RepositoryFiles& source, std::vector<std::string>& arguments);

  RunEnd run(const std::vector<std::string>& arguments, const RunOutput& output = {});
  /// The same; `text` receives all of standard output.
  RunEnd runForText(const std::vector<std::string>& arguments, std::string& text);
  /// A temporary file for this call.
  std::unique_ptr<ScratchFile> scratch(std::string_view purpose, std::string_view content) const;

 private:
  EngineAnswer prepare(Purpose purpose);
  void addSourceOptions(const RepositoryConfig& source);
  EngineAnswer lookAtFolder(const std::string& folder, Purpose purpose) const;

  const RepositoryFiles& files_;
  EngineJob& job_;
  RepositoryConfig configuration_;
  Secrets secrets_;
  ResticProgram::Found program_;
  std::vector<std::string> begin_;  // the beginning of every command line
  Environment environment_;
  std::unique_ptr<ScratchFile> location_, sourceLocation_;
  EngineAnswer state_;
};

}  // namespace keldane
