// Finding the files that damage has hit, and taking damaged packs out of use.
#include <algorithm>
#include <filesystem>
#include <set>
#include <stdexcept>

#include "daemon/engine/restic/PackFiles.h"
#include "daemon/engine/restic/ResticEngine.h"
#include "daemon/engine/restic/output/ResticFailure.h"
#include "daemon/engine/restic/output/ResticLines.h"
#include "daemon/engine/restic/output/ResticOutput.h"

namespace keldane {
namespace {

constexpr std::size_t kMostParts = 1000;  // on one command line
constexpr unsigned kRepairsPacks = 16;

/// Runs `find` for a part of the ids at a time and adds the results.
EngineAnswer findUsers(ResticSession& session, const std::string& kind, const std::vector<std::string>& ids,
                       std::vector<FoundEntry>& found) {
  for (std::size_t begin = 0; begin < ids.size(); begin += kMostParts) {
    std::vector<std::string> arguments = {"find", "--json", kind, "--"};
    const auto first = ids.begin() + static_cast<std::ptrdiff_t>(begin);
    arguments.insert(arguments.end(), first,
                     first + static_cast<std::ptrdiff_t>(std::min(kMostParts, ids.size() - begin)));
    std::string text;
    const RunEnd run = session.runForText(arguments, text);
    if (!run.answer) {
      return run.answer;
    }
    const std::optional<std::vector<FoundEntry>> users = packUsersFromText(text);
    if (!users) {
      return answerFor(Health::failed, "what it found cannot be read");
    }
    found.insert(found.end(), users->begin(), users->end());
  }
  return {};
}

/// The parts that the packs hold according to the index.
EngineAnswer blobsOf(ResticSession& session, const std::vector<std::string>& packs, PackBlobs& blobs) {
  std::vector<std::string> indexes;
  RunOutput output;
  output.outputLine = [&](std::string_view line) {
    if (isWholeId(line)) {
      indexes.emplace_back(line);
    }
  };
  RunEnd run = session.run({"list", "index"}, output);
  for (std::size_t i = 0; run.answer && i < indexes.size(); ++i) {
    std::string text;
    run = session.runForText({"cat", "index", indexes[i]}, text);
    addBlobs(text, packs, blobs);
  }
  return run.answer;
}

/// Adds the snapshots whose topmost list of names is damaged. That list belongs to no folder, so the storage
/// program's search does not report it.
EngineAnswer addWholeSnapshots(ResticSession& session, const std::vector<std::string>& trees,
                               std::vector<FoundEntry>& found) {
  std::string text;
  const RunEnd run = session.runForText({"snapshots", "--json"}, text);
  for (const auto& [snapshot, tree] : run.answer ? topTreesFromText(text) : SnapshotTrees()) {
    if (std::ranges::find(trees, tree) != trees.end()) {
      FoundEntry entry;
      entry.snapshot = snapshot;
      entry.entry.path = "/";
      entry.entry.kind = EntryKind::folder;
      found.push_back(std::move(entry));
    }
  }
  return run.answer;
}

/// Removes snapshots that cannot be read, because all maintenance fails while they are there.
EngineAnswer dropUnreadableSnapshots(ResticSession& session, const std::string& repository,
                                     const std::string& aside) {
  std::set<std::string> unreadable;
  RunOutput output;
  output.errorLine = [&](std::string_view line) {
    const std::string beginning = unreadableSnapshot(line);
    unreadable.insert(beginning);
    return !beginning.empty();
  };
  const RunEnd run = session.run({"--no-cache", "snapshots", "--json"}, output);
  unreadable.erase("");
  std::error_code error;
  for (std::filesystem::directory_iterator entry(repository + "/snapshots", error), end;
       !error && entry != end; entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (std::ranges::any_of(unreadable,
                            [&](const std::string& beginning) { return name.starts_with(beginning); })) {
      moveAside(entry->path().string(), aside);
    }
  }
  return run.answer;
}

}  // namespace

EngineAnswer ResticEngine::filesInPacks(const std::vector<std::string>& packs, std::vector<FoundEntry>& found,
                                        EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state() || packs.empty()) {
    return session.state();
  }
  if (!std::ranges::all_of(packs, isWholeId)) {
    return {Health::failed, "An id of a damaged pack is no hexadecimal number."};
  }
  PackBlobs blobs;
  EngineAnswer answer = blobsOf(session, packs, blobs);
  std::vector<FoundEntry> users;
  if (answer && !blobs.data.empty()) {
    // The program first reads the pack itself to learn what it holds. That fails when the damage is there.
    answer = findUsers(session, "--pack", packs, users);
    if (answer.health == Health::damaged || answer.health == Health::failed) {
      users.clear();
      answer = findUsers(session, "--blob", blobs.data, users);
    }
  }
  if (answer && !blobs.trees.empty()) {
    answer = findUsers(session, "--tree", blobs.trees, users);
  }
  if (answer && !blobs.trees.empty()) {
    answer = addWholeSnapshots(session, blobs.trees, users);
  }
  found.insert(found.end(), users.begin(), users.end());
  return answer;
}

EngineAnswer ResticEngine::dropPacks(const std::vector<std::string>& packs, EngineJob& job) {
  ResticSession session = open(Purpose::use, job);
  if (!session.state()) {
    return session.state();
  }
  const std::optional<std::string> repository = session.configuration().localFolder();
  const std::string aside = files_.folder().setAside();
  const bool isOld = session.minorVersion() < kRepairsPacks;
  if (!std::ranges::all_of(packs, isWholeId)) {
    return {Health::failed, "An id of a damaged pack is no hexadecimal number."};
  }
  if (!repository && isOld && !packs.empty()) {
    return {Health::failed,
            "This version of restic cannot take damaged parts out of a repository on a server. Install "
            "restic 0.16 or "
            "newer."};
  }
  try {
    makePrivateFolder(aside);
    if (repository) {
      const std::string cache = files_.folder().cache() + "/" + session.configuration().repositoryId;
      for (const std::string& pack : packs) {
        if (!bringBackFromCache(*repository, cache, pack, job)) {
          moveAside(fileOfPack(*repository, pack), aside);
        }
      }
      if (const EngineAnswer answer = dropUnreadableSnapshots(session, *repository, aside); !answer) {
        return answer;
      }
    } else if (!packs.empty()) {
      RunOutput output;
      output.workingFolder = aside;  // the program puts copies of the packs there
      std::vector<std::string> arguments = {"repair", "packs", "--"};
      arguments.insert(arguments.end(), packs.begin(), packs.end());
      return session.run(arguments, output).answer;
    }
  } catch (const std::runtime_error& error) {
    return {Health::failed, session.secrets().scrubbed(error.what())};
  }
  return session
      .run(isOld ? std::vector<std::string>{"rebuild-index"} : std::vector<std::string>{"repair", "index"})
      .answer;
}

}  // namespace keldane
