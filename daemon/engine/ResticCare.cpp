// Keeping the repository small and sound.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "daemon/engine/ResticEngine.h"
#include "daemon/engine/ResticFailure.h"
#include "daemon/engine/ResticOutput.h"

namespace keldane {
namespace {

constexpr std::size_t kMostIds = 500;  // on one command line
constexpr unsigned kRepairsPacks = 16;
constexpr std::size_t kMostMessages = 100;

bool isHexadecimal(const std::string& id) {
  return id.size() >= 8 && id.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Runs a command once for each few of the ids.
RunEnd runInChunks(ResticSession& session, const std::vector<std::string>& command,
                   const std::vector<std::string>& ids,
                   const std::function<RunEnd(const std::vector<std::string>& arguments)>& run) {
  RunEnd last;
  if (!std::ranges::all_of(ids, isHexadecimal)) {
    last.answer = {Health::failed, "An id is no hexadecimal number."};
    return last;
  }
  for (std::size_t begin = 0; begin < ids.size(); begin += kMostIds) {
    std::vector<std::string> arguments = command;
    const auto first = ids.begin() + static_cast<std::ptrdiff_t>(begin);
    arguments.insert(arguments.end(), first,
                     first + static_cast<std::ptrdiff_t>(std::min(kMostIds, ids.size() - begin)));
    last = run ? run(arguments) : session.run(arguments);
    if (!last.answer) {
      break;
    }
  }
  return last;
}

/// Moves packs out of a repository in a folder; those that are gone already are fine.
EngineAnswer moveAside(const std::string& repository, const std::vector<std::string>& packs,
                       const std::string& aside) {
  makePrivateFolder(aside);
  for (const std::string& pack : packs) {
    const std::string file = repository + "/data/" + pack.substr(0, 2) + "/" + pack;
    const std::string target = aside + "/" + pack;
    std::error_code error;
    std::filesystem::rename(file, target, error);
    if (error == std::errc::cross_device_link) {
      std::filesystem::copy_file(file, target, std::filesystem::copy_options::overwrite_existing, error);
      if (error) {
        std::filesystem::remove(target, error);  // what cannot be read cannot be kept either
      }
      std::filesystem::remove(file, error);
    }
    if (error && error != std::errc::no_such_file_or_directory) {
      return answerFor(Health::failed, "a damaged file cannot be taken away: " + error.message());
    }
  }
  return {};
}

/// What its files take on the disk's own count of bytes; unreadable folders count as empty.
std::uint64_t sizeOfFolder(const std::string& folder) {
  std::uint64_t bytes = 0;
  std::error_code error;
  constexpr auto kOptions = std::filesystem::directory_options::skip_permission_denied;
  for (std::filesystem::recursive_directory_iterator entry(folder, kOptions, error), end;
       !error && entry != end; entry.increment(error)) {
    struct stat status {};
    if (::lstat(entry->path().c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      bytes += static_cast<std::uint64_t>(status.st_size);
    }
  }
  return bytes;
}

}  // namespace

EngineAnswer ResticEngine::forget(const std::vector<std::string>& snapshots, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  return session.state() ? runInChunks(session, {"forget", "--"}, snapshots, {}).answer : session.state();
}

EngineAnswer ResticEngine::prune(EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  return session.state() ? session.run({"prune", "--cleanup-cache"}).answer : session.state();
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
  return answer;
}

EngineAnswer ResticEngine::filesInPacks(const std::vector<std::string>& packs, std::vector<FoundEntry>& found,
                                        EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  const auto runOne = [&](const std::vector<std::string>& arguments) {
    std::string text;
    RunEnd run = session.runForText(arguments, text);
    const std::optional<std::vector<FoundEntry>> users = packUsersFromText(text);
    if (users) {
      found.insert(found.end(), users->begin(), users->end());
    } else if (run.answer) {
      run.answer = answerFor(Health::failed, "what it found cannot be read");
    }
    return run;
  };
  return runInChunks(session, {"find", "--json", "--pack", "--"}, packs, runOne).answer;
}

EngineAnswer ResticEngine::dropPacks(const std::vector<std::string>& packs, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  const std::string aside = files_.folder().setAside();
  const std::optional<std::string> repository = session.configuration().localFolder();
  if (!std::ranges::all_of(
          packs, [](const std::string& pack) { return pack.size() == 64 && isHexadecimal(pack); })) {
    return {Health::failed, "An id of a damaged pack is no hexadecimal number."};
  }
  if (!repository && session.minorVersion() < kRepairsPacks) {
    return {Health::failed,
            "This version of restic cannot take damaged packs out of a repository on a server. Install "
            "restic 0.16 or "
            "newer, or repair the repository on the server."};
  }
  try {
    makePrivateFolder(aside);
    if (!repository) {
      RunOutput output;
      output.workingFolder = aside;  // it puts copies of the packs there
      const auto runOne = [&](const std::vector<std::string>& arguments) {
        return session.run(arguments, output);
      };
      return runInChunks(session, {"repair", "packs", "--"}, packs, runOne).answer;
    }
    if (const EngineAnswer moved = moveAside(*repository, packs, aside); !moved) {
      return moved;
    }
  } catch (const std::runtime_error& error) {
    return {Health::failed, session.secrets().scrubbed(error.what())};
  }
  return session
      .run(session.minorVersion() < kRepairsPacks ? std::vector<std::string>{"rebuild-index"}
                                                  : std::vector<std::string>{"repair", "index"})
      .answer;
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
  constexpr std::string_view kBlanks = " \t\r\n\v\f";
  if (passphrase.empty() || passphrase.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos ||
      kBlanks.find(passphrase.front()) != std::string_view::npos ||
      kBlanks.find(passphrase.back()) != std::string_view::npos) {
    return {Health::failed, "A passphrase is one line that neither begins nor ends with a blank."};
  }
  try {
    const std::unique_ptr<ScratchFile> file = session.scratch("passphrase", passphrase);
    return session.run({"key", "add", "--new-password-file", file->path()}).answer;
  } catch (const std::runtime_error& error) {
    return {Health::failed, session.secrets().scrubbed(error.what())};
  }
}

}  // namespace keldane
