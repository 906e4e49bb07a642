// Listing, finding, fetching and restoring stored files.
#include <unistd.h>

#include <algorithm>
#include <map>

#include "daemon/engine/restic/Glob.h"
#include "daemon/engine/restic/ResticEngine.h"
#include "daemon/engine/restic/output/ResticFailure.h"
#include "daemon/engine/restic/output/ResticLines.h"
#include "daemon/engine/restic/output/ResticOutput.h"
#include "platform/files/Path.h"

namespace keldane {
namespace {

/// The limit of one run. A command line has room for more; longer lists of arguments go into several runs.
constexpr std::size_t kLongestArguments = 100'000;

std::string withoutSlashAtEnd(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

bool takesUnknownSnapshot(const RunEnd& run) {
  return run.errors.find("no matching ID found") != std::string::npos;
}

EngineAnswer unknownSnapshot(const std::string& snapshot) {
  return {Health::failed, "The repository has no snapshot " + snapshot + "."};
}

/// The snapshots that the arguments select, oldest first.
EngineAnswer readSnapshots(ResticSession& session, const std::vector<std::string>& arguments,
                           std::vector<Snapshot>& found) {
  std::string text;
  const RunEnd run = session.runForText(arguments, text);
  if (!run.answer) {
    return run.answer;
  }
  std::optional<std::vector<Snapshot>> snapshots = snapshotsFromText(text);
  if (!snapshots) {
    return answerFor(Health::failed, "its list of snapshots cannot be read");
  }
  found = std::move(*snapshots);
  return {};
}

/// Sorts the results, because the storage program does not print them in the order of time.
EngineAnswer sortNewestFirst(ResticSession& session, std::vector<FoundEntry>& found) {
  std::vector<Snapshot> snapshots;
  const EngineAnswer answer =
      found.empty() ? EngineAnswer() : readSnapshots(session, {"snapshots", "--json"}, snapshots);
  std::map<std::string, std::size_t> places;
  for (const Snapshot& snapshot : snapshots) {
    places.emplace(snapshot.id, places.size() + 1);
  }
  std::ranges::stable_sort(found, std::ranges::greater(),
                           [&](const FoundEntry& entry) { return places[entry.snapshot]; });
  return answer;
}

/// The paths for one run, as patterns that match exactly these paths.
std::vector<std::string> includesFor(const std::vector<std::string>& paths, std::size_t& next) {
  std::vector<std::string> arguments;
  for (std::size_t length = 0; next < paths.size(); ++next) {
    std::string pattern = escapedPattern(withoutSlashAtEnd(paths[next]));
    length += pattern.size() + 12;
    if (!arguments.empty() && length > kLongestArguments) {
      break;
    }
    arguments.insert(arguments.end(), {"--include", std::move(pattern)});
  }
  return arguments;
}

/// Collects the problems that one run of `restore` reports, and removes files whose content was not restored.
class ProblemList {
 public:
  ProblemList(const std::string& folder, const Secrets& secrets, std::vector<std::string>& problems)
      : folder_(folder), secrets_(secrets), problems_(problems) {}

  bool take(std::string_view line) {
    const std::optional<ItemProblem> problem = problemFromLine(line);
    if (!problem) {
      return line.starts_with("Fatal: There were ");
    }
    if (!problem->onlyMetadata) {
      contentProblem_ = contentProblem_.empty() ? problem->reason : contentProblem_;
      wrong_.push_back(folder_ + problem->path);
    }
    problems_.push_back(problem->path + ": " + secrets_.scrubbed(problem->reason));
    return true;
  }
  /// A file with the right size and wrong bytes must not be taken for whole.
  void removeWrongFiles() const {
    for (const std::string& file : wrong_) {
      ::unlink(file.c_str());
    }
  }
  const std::string& contentProblem() const { return contentProblem_; }

 private:
  const std::string& folder_;
  const Secrets& secrets_;
  std::vector<std::string>& problems_;
  std::string contentProblem_;
  std::vector<std::string> wrong_;
};

}  // namespace

EngineAnswer ResticEngine::snapshots(bool ofAllComputers, std::vector<Snapshot>& found, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  std::vector<std::string> arguments = {"snapshots", "--json"};
  if (!ofAllComputers) {
    arguments.insert(arguments.end(), {"--tag", session.computerTag()});
  }
  return readSnapshots(session, arguments, found);
}

EngineAnswer ResticEngine::list(const std::string& snapshot, const std::string& path, const Visit& visit,
                                EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  std::vector<std::string> arguments = {"ls", "--json"};
  const std::string below = withoutSlashAtEnd(path);
  if (below.empty() || below == "/") {
    arguments.insert(arguments.end(), {"--", snapshot});
  } else {
    arguments.insert(arguments.end(), {"--recursive", "--", snapshot, below});
  }
  RunOutput output;
  output.outputLine = [&](std::string_view line) {
    if (const std::optional<StoredEntry> entry = entryFromLine(line)) {
      visit(*entry);
    }
  };
  const RunEnd run = session.run(arguments, output);
  return takesUnknownSnapshot(run) ? unknownSnapshot(snapshot) : run.answer;
}

/// The storage program skips a folder in which it found nothing before, even when the same folder is at
/// another path later. So it is asked for the last name only, and whole paths are compared here.
EngineAnswer ResticEngine::find(const std::string& pattern, std::vector<FoundEntry>& found, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  const std::string whole = withoutSlashAtEnd(pattern);
  const std::size_t slash = whole.rfind('/');
  const std::string name = slash == std::string::npos ? whole : whole.substr(slash + 1);
  if (name.empty() || (slash != std::string::npos && !whole.starts_with('/'))) {
    return {Health::failed, "What is looked for is a name or an absolute path."};
  }
  std::string text;
  const RunEnd run = session.runForText({"find", "--json", "--", name == "**" ? "*" : name}, text);
  if (!run.answer) {
    return run.answer;
  }
  std::optional<std::vector<FoundEntry>> matches = matchesFromText(text);
  if (!matches) {
    return answerFor(Health::failed, "what it found cannot be read");
  }
  // The program also prints everything inside a folder that matches.
  const std::string shown = shownText(whole);
  std::erase_if(*matches, [&](const FoundEntry& match) {
    const std::string& path = match.entry.path;
    return slash == std::string::npos ? !matchesName(shown, entryName(path)) : !matchesPath(shown, path);
  });
  found = std::move(*matches);
  return sortNewestFirst(session, found);
}

EngineAnswer ResticEngine::fetch(const std::string& snapshot, const std::string& path, int descriptor,
                                 EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  RunOutput output;
  output.descriptor = descriptor;
  const RunEnd run = session.run({"dump", "--", snapshot, path}, output);
  if (takesUnknownSnapshot(run)) {
    return unknownSnapshot(snapshot);
  }
  if (run.errors.find("not found in snapshot") != std::string::npos) {
    return {Health::failed, "The snapshot " + snapshot + " does not have the file."};
  }
  return run.answer;
}

EngineAnswer ResticEngine::restore(const std::string& snapshot, const std::vector<std::string>& paths,
                                   const std::string& folder, std::vector<std::string>& problems,
                                   EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  const bool isWhole = paths.empty() || std::ranges::find(paths, "/") != paths.end();
  std::size_t next = 0;
  do {
    std::vector<std::string> arguments = {"restore", "--target", folder};
    if (!isWhole) {
      const std::vector<std::string> includes = includesFor(paths, next);
      arguments.insert(arguments.end(), includes.begin(), includes.end());
    }
    arguments.insert(arguments.end(), {"--", snapshot});
    ProblemList list(folder, session.secrets(), problems);
    RunOutput output;
    output.errorLine = [&](std::string_view line) { return list.take(line); };
    const std::size_t before = problems.size();
    const RunEnd run = session.run(arguments, output);
    list.removeWrongFiles();
    if (takesUnknownSnapshot(run)) {
      return unknownSnapshot(snapshot);
    }
    // A program that was killed may not have reported all problems, so only exit status 1 counts.
    if (!list.contentProblem().empty() && run.exitStatus == 1) {
      ChildEnd end;
      end.exitStatus = 1;
      const EngineAnswer judged = judgedEnd(end, list.contentProblem(), session.secrets());
      return judged.health == Health::damaged
                 ? judged
                 : EngineAnswer{Health::failed, "Not everything could be restored: " +
                                                    session.secrets().scrubbed(list.contentProblem()) + "."};
    }
    const bool onlyMetadata = run.exitStatus == 1 && problems.size() > before && run.errors.empty();
    if (!run.answer && !onlyMetadata) {
      return run.answer;
    }
  } while (!isWhole && next < paths.size());
  return {};
}

}  // namespace keldane
