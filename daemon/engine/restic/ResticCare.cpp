// Keeping the repository small and sound.
#include <algorithm>
#include <stdexcept>

#include "daemon/engine/restic/PackFiles.h"
#include "daemon/engine/restic/ResticEngine.h"
#include "daemon/engine/restic/output/ResticFailure.h"
#include "daemon/engine/restic/output/ResticLines.h"
#include "daemon/engine/restic/output/ResticOutput.h"
#include "daemon/engine/restic/program/CacheLimit.h"

namespace keldane {
namespace {

/// The lists of names of a million files take about half of this.
constexpr std::uint64_t kLargestCache = std::uint64_t{1} << 30;
constexpr std::size_t kMostSnapshots = 500;  // on one command line
constexpr std::size_t kMostMessages = 100;

/// The snapshots with a list of names that cannot be read.
std::vector<std::string> snapshotsWithoutTrees(ResticSession& session) {
  std::vector<std::string> found;
  const auto take = [&](std::string_view line) {
    const std::string snapshot = snapshotWithoutTree(line);
    if (!snapshot.empty() && std::ranges::find(found, snapshot) == found.end()) {
      found.push_back(snapshot);
    }
  };
  RunOutput output;
  output.outputLine = take;
  output.errorLine = [&](std::string_view line) {
    take(line);
    return false;
  };
  // The program searches every list of names for an id that cannot exist, and reports the lists that it
  // cannot read.
  session.run({"--no-cache", "find", "--json", "--tree", std::string(64, '0')}, output);
  return found;
}

}  // namespace

EngineAnswer ResticEngine::forget(const std::vector<std::string>& snapshots, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  if (!std::ranges::all_of(snapshots, isIdOrBeginning)) {
    return {Health::failed, "An id of a snapshot is no hexadecimal number."};
  }
  EngineAnswer answer;
  for (std::size_t begin = 0; answer && begin < snapshots.size(); begin += kMostSnapshots) {
    std::vector<std::string> arguments = {"forget", "--"};
    const auto first = snapshots.begin() + static_cast<std::ptrdiff_t>(begin);
    arguments.insert(arguments.end(), first,
                     first + static_cast<std::ptrdiff_t>(std::min(kMostSnapshots, snapshots.size() - begin)));
    answer = session.run(arguments).answer;
  }
  return answer;
}

EngineAnswer ResticEngine::prune(EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  limitCache(files_.folder().cache(), kLargestCache);
  return session.run({"prune", "--cleanup-cache"}).answer;
}

EngineAnswer ResticEngine::unlock(EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  return session.state() ? session.run({"unlock"}).answer : session.state();
}

CheckAnswer ResticEngine::check(unsigned part, unsigned parts, EngineJob& job) {
  CheckAnswer answer;
  ResticSession session = open(Purpose::use, job);
  static_cast<EngineAnswer&>(answer) = session.state();
  if (!answer) {
    return answer;
  }
  std::vector<std::string> arguments = {"check"};
  if (parts == 1) {
    arguments.emplace_back("--read-data");
  } else if (parts > 1) {
    arguments.push_back("--read-data-subset=" + std::to_string(part) + "/" + std::to_string(parts));
  }
  CheckReader reader;
  RunOutput output;
  output.errorLine = [&](std::string_view line) {
    reader.errorLine(line);
    if (answer.messages.size() < kMostMessages && !line.empty()) {
      answer.messages.push_back(session.secrets().scrubbed(line));
    }
    return false;
  };
  static_cast<EngineAnswer&>(answer) = session.run(arguments, output).answer;
  answer.damagedPacks = reader.packs();
  if (!answer.damagedPacks.empty() && answer.health == Health::failed) {
    static_cast<EngineAnswer&>(answer) = answerFor(Health::damaged);
  }
  if (answer.health == Health::damaged && answer.damagedPacks.empty()) {
    answer.damagedSnapshots = snapshotsWithoutTrees(session);
  }
  return answer;
}

EngineAnswer ResticEngine::size(std::uint64_t& bytes, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  if (const std::optional<std::string> folder = session.configuration().localFolder()) {
    bytes = sizeOfFolder(*folder);
    return {};
  }
  std::string text;
  const RunEnd run = session.runForText({"stats", "--mode", "raw-data", "--json"}, text);
  const std::optional<std::uint64_t> size = run.answer ? sizeFromStats(text) : std::nullopt;
  if (run.answer && !size) {
    return answerFor(Health::failed, "its size cannot be read");
  }
  bytes = size.value_or(bytes);
  return run.answer;
}

EngineAnswer ResticEngine::addKey(const std::string& passphrase, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  if (!isKeyText(passphrase)) {
    return {Health::failed, "A passphrase is one line that neither begins nor ends with a blank."};
  }
  try {
    const std::unique_ptr<ScratchFile> file = session.scratch("passphrase", passphrase);
    return session.run({"key", "add", "--new-password-file", file->path()}).answer;
  } catch (const std::runtime_error& error) {
    return {Health::failed, session.secrets().scrubbed(error.what())};
  }
}

EngineAnswer ResticEngine::keys(std::vector<KeyRecord>& found, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  std::string text;
  const RunEnd run = session.runForText({"key", "list", "--json"}, text);
  if (!run.answer) {
    return run.answer;
  }
  std::optional<std::vector<KeyRecord>> keys = keysFromText(text);
  if (!keys) {
    return answerFor(Health::failed, "its list of keys cannot be read");
  }
  found = std::move(*keys);
  return {};
}

EngineAnswer ResticEngine::removeKey(const std::string& id, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  return isIdOrBeginning(id) ? session.run({"key", "remove", "--", id}).answer
                             : EngineAnswer{Health::failed, "An id of a key is no hexadecimal number."};
}

/// The program prints "snapshot ID saved" for each snapshot that it has copied, and "skipping …" for each
/// that is there already.
EngineAnswer ResticEngine::copyFrom(const RepositoryFiles& other,
                                    const std::function<void(std::size_t)>& copied, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  try {
    // With -v the program also reports the snapshots that are there already.
    std::vector<std::string> arguments = {"copy", "-v"};
    if (const EngineAnswer answer = session.addSource(other, arguments); !answer) {
      return answer;
    }
    std::size_t done = 0;
    RunOutput output;
    output.outputLine = [&](std::string_view line) {
      if ((line.starts_with("snapshot ") && line.ends_with(" saved")) || line.starts_with("skipping ")) {
        copied(++done);
      }
    };
    return session.run(arguments, output).answer;
  } catch (const std::runtime_error& error) {
    return {Health::failed, session.secrets().scrubbed(error.what())};
  }
}

}  // namespace keldane
