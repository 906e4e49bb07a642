// Storing files in a snapshot.
#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "daemon/engine/process/Standstill.h"
#include "daemon/engine/restic/ResticEngine.h"
#include "daemon/engine/restic/output/ResticFailure.h"
#include "daemon/engine/restic/output/ResticLines.h"

namespace keldane {
namespace {

constexpr int kSomeUnreadable = 3;

/// Thrown to end the storage program when it waits for itself after the disk was full.
struct StandsStill {};

std::string listOf(const std::vector<std::string>& targets) {
  std::string list;
  for (const std::string& target : targets) {
    if (!target.starts_with('/') || target.find('\0') != std::string::npos) {
      throw std::runtime_error("A file that is to be stored has no absolute path.");
    }
    list.append(target).push_back('\0');
  }
  return list;
}

std::vector<std::string> argumentsFor(const StoreRequest& request, const ResticSession& session,
                                      const std::string& list) {
  std::vector<std::string> arguments = {"backup",           "--json", "-v",    "-v",
                                        "--files-from-raw", list,     "--tag", session.computerTag()};
  for (const std::string& tag : request.tags) {
    arguments.insert(arguments.end(), {"--tag", tag});
  }
  if (!session.configuration().hostName.empty()) {
    arguments.insert(arguments.end(), {"--host", session.configuration().hostName});
  }
  if (request.parent.empty()) {
    arguments.emplace_back("--force");
  } else {
    arguments.insert(arguments.end(), {"--parent", request.parent});
  }
  return arguments;
}

bool hasRoomFor(const std::string& folder, std::uint64_t bytes) {
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(folder, error);
  return error || space.available >= bytes;
}

StoreAnswer storeAnswer(EngineAnswer answer) {
  StoreAnswer stored;
  stored.health = answer.health;
  stored.detail = std::move(answer.detail);
  return stored;
}

}  // namespace

StoreAnswer ResticEngine::store(const StoreRequest& request, const StoreObserver& observer, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return storeAnswer(session.state());
  }
  std::unique_ptr<ScratchFile> list;
  try {
    list = session.scratch("targets", listOf(request.targets));
  } catch (const std::runtime_error& error) {
    return storeAnswer({Health::failed, session.secrets().scrubbed(error.what())});
  }
  BackupReader reader(observer);
  RunOutput output;
  const std::optional<std::string> folder = session.configuration().localFolder();
  Standstill standstill;
  output.outputLine = [&](std::string_view line) {
    reader.outputLine(line);
    if (folder && standstill.isSeenIn(line, std::chrono::steady_clock::now()) &&
        !hasRoomFor(*folder, standstill.totalBytes())) {
      throw StandsStill();
    }
  };
  output.errorLine = [&](std::string_view line) { return reader.errorLine(line); };
  RunEnd run;
  try {
    run = session.run(argumentsFor(request, session, list->path()), output);
  } catch (const StandsStill&) {
    return storeAnswer(answerFor(Health::full, "the storage program stands still"));
  }
  // When all files are gone, there is nothing to make a snapshot of, and nothing is wrong with the
  // repository.
  const bool allGone =
      run.exitStatus == 1 && run.errors.find(" directories/files do not exist") != std::string::npos;
  const bool hasSnapshot =
      (run.exitStatus == 0 || run.exitStatus == kSomeUnreadable) && !reader.snapshot().empty();
  if (!hasSnapshot && !allGone) {
    return storeAnswer(run.answer ? answerFor(Health::failed, "it tells of no snapshot") : run.answer);
  }
  StoreAnswer answer;
  answer.snapshot = reader.snapshot();
  answer.bytesAdded = reader.bytesAdded();
  answer.someUnreadable = allGone || run.exitStatus == kSomeUnreadable || reader.someUnreadable();
  return answer;
}

}  // namespace keldane
