#include "daemon/backup/batch/LookAlikes.h"

#include <fcntl.h>

#include <algorithm>
#include <set>

#include "platform/files/Descriptor.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

/// A folder that certainly contains the reported name.
std::string folderAround(const std::string& told) {
  const std::size_t slash = told.rfind('/', told.find(kReplacement));
  return slash == 0 || slash == std::string::npos ? "/" : told.substr(0, slash);
}

/// Whether an answer is about the one file that was asked for, not about the repository.
bool isAboutTheFile(const EngineAnswer& answer) {
  return answer || answer.health == Health::failed || answer.health == Health::damaged;
}

}  // namespace

std::string asTold(const std::string& path) { return isValidUtf8(path) ? path : validUtf8(path); }

bool canLookLikeAnother(const std::string& path) {
  return !isValidUtf8(path) || path.find(kReplacement) != std::string::npos;
}

void LookAlikes::add(const std::string& path) {
  if (!canLookLikeAnother(path)) {
    return;
  }
  Group& group = groups_[asTold(path)];
  if (std::ranges::find(group, path) == group.end()) {
    group.push_back(path);
  }
}

LookAlikes::Word LookAlikes::wordOn(const std::string& path) const {
  const auto word = words_.find(path);
  return word == words_.end() ? Word::engines : word->second;
}

EngineAnswer LookAlikes::settle(BackupEngine& engine, const std::string& snapshot, const Told& took,
                                const Told& failed, EngineJob& job) {
  std::map<std::string, Group*> doubtful;
  for (auto& [told, group] : groups_) {
    if (took(told) && (group.size() > 1 || failed(told))) {
      doubtful.emplace(told, &group);
      for (const std::string& path : group) {
        words_[path] = Word::unknown;
      }
    }
  }
  if (const EngineAnswer answer = count(engine, snapshot, doubtful, job); !answer) {
    return answer;
  }
  for (const auto& [told, group] : doubtful) {
    const bool areAllThere = !failed(told) && counts_[told] >= group->size();
    if (const EngineAnswer answer = settleGroup(engine, snapshot, *group, areAllThere, job); !answer) {
      return answer;
    }
  }
  return {};
}

// Each folder is listed once, however many files it has.
EngineAnswer LookAlikes::count(BackupEngine& engine, const std::string& snapshot,
                               const std::map<std::string, Group*>& doubtful, EngineJob& job) {
  std::set<std::string> folders;
  for (const auto& [told, group] : doubtful) {
    folders.insert(folderAround(told));
  }
  for (const std::string& folder : folders) {
    const EngineAnswer answer = engine.list(
        snapshot, folder,
        [&](const StoredEntry& entry) {
          if (entry.kind == EntryKind::file && doubtful.contains(entry.path) &&
              folderAround(entry.path) == folder) {
            ++counts_[entry.path];
          }
        },
        job);
    if (!isAboutTheFile(answer)) {
      return answer;
    }
  }
  return {};
}

EngineAnswer LookAlikes::fetch(BackupEngine& engine, const std::string& snapshot, const std::string& path,
                               bool& isThere, EngineJob& job) const {
  const Descriptor nothing(open("/dev/null", O_WRONLY | O_CLOEXEC));
  const EngineAnswer answer = engine.fetch(snapshot, path, nothing.get(), job);
  isThere = static_cast<bool>(answer);
  return isAboutTheFile(answer) ? EngineAnswer() : answer;
}

EngineAnswer LookAlikes::settleGroup(BackupEngine& engine, const std::string& snapshot, const Group& group,
                                     bool areAllThere, EngineJob& job) {
  bool isThere = false;
  if (areAllThere) {
    if (const EngineAnswer answer = fetch(engine, snapshot, group.front(), isThere, job); !answer) {
      return answer;
    }
  }
  const bool isProven = areAllThere && isThere;
  for (const std::string& path : group) {
    if (!isProven) {
      if (const EngineAnswer answer = fetch(engine, snapshot, path, isThere, job); !answer) {
        return answer;
      }
    }
    words_[path] = isThere ? Word::stored : Word::notStored;
  }
  return {};
}

}  // namespace keldane
