#include "daemon/restore/staging/Stager.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <unordered_map>

#include "daemon/restore/placing/Holes.h"
#include "daemon/restore/placing/PlaceItem.h"
#include "daemon/restore/placing/Placer.h"
#include "platform/files/Path.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

// More files than this of one folder in a partial snapshot are restored faster with the whole folder than by
// name.
constexpr std::size_t kMostByName = 64;
// The number of attempts. Files that cannot be written are left out of the next attempt. A full target ends
// the restore.
constexpr int kMostFetches = 3;

/// The path that a line "path: reason" is about, among those that are wanted. Both may hold ": ".
std::optional<std::string> pathOf(const std::string& line, const std::string& prefix,
                                  const RestorePlan& plan) {
  for (std::size_t end = line.find(": "); end != std::string::npos; end = line.find(": ", end + 1)) {
    if (line.compare(0, prefix.size(), prefix) == 0 && end > prefix.size()) {
      std::string path = line.substr(prefix.size(), end - prefix.size());
      if (plan.files.contains(path)) {
        return path;
      }
    }
  }
  return std::nullopt;
}

/// Opens a folder of a staging by its path, with all folders on the way, which can be entered meanwhile.
std::vector<StagedFolder> openWay(int root, const std::string& path) {
  std::vector<StagedFolder> way;
  way.reserve(static_cast<std::size_t>(std::count(path.begin(), path.end(), '/')) + 1);
  int folder = root;
  for (const std::string& name : pathComponents(path)) {
    if (name != "/") {
      way.emplace_back(folder, name);
      if (!way.back()) {
        return {};
      }
      folder = way.back().get();
    }
  }
  return way;
}

/// The descriptor of the last folder on the way: the root itself when the path is empty, -1 when a folder
/// could not be opened.
int endOf(const std::vector<StagedFolder>& way, int root, const std::string& path) {
  return path.empty() || path == "/" ? root : way.empty() ? -1 : way.back().get();
}

std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

}  // namespace

EngineAnswer Stager::stage(RestorePlan& plan) {
  mkdirat(staging_.folder(), kResult, S_IRWXU);
  std::vector<std::uint32_t> order(plan.sources.size());
  std::iota(order.begin(), order.end(), 0U);
  std::stable_sort(order.begin(), order.end(), [&](std::uint32_t left, std::uint32_t right) {
    // Files of newer snapshots replace those of older ones.
    return plan.sources[left].number < plan.sources[right].number;
  });
  for (const std::uint32_t source : order) {
    const Part part{source, "from-" + std::to_string(source), pathsFrom(source, plan)};
    if (part.paths.empty()) {
      continue;
    }
    if (!options_.mayGoOn()) {
      return {Health::cancelled, {}};
    }
    if (const EngineAnswer answer = fetch(part, plan); !answer) {
      return answer;
    }
    filter(part, plan);
    failMissing(part, plan, "it is not in the snapshot that should have it");
    compose(part, plan);
    removeTree(staging_.folder(), part.name);
  }
  return {};
}

std::vector<std::string> Stager::pathsFrom(std::uint32_t source, const RestorePlan& plan) const {
  std::vector<std::string> paths;
  const RestoreSource& from = plan.sources[source];
  for (const PlannedItem& item : plan.items) {
    if (item.base == source) {
      paths.push_back(item.path);
      continue;
    }
    const std::size_t before = paths.size();
    for (auto file = plan.files.lower_bound(item.path);
         file != plan.files.end() && file->first.starts_with(item.path); ++file) {
      if (file->second.source == source && isAtOrBelow(file->first, item.path)) {
        paths.push_back(file->first);
      }
    }
    if (!options_.owner && !from.full && from.prefix.empty() && paths.size() - before > kMostByName) {
      paths.resize(before);
      paths.push_back(item.path);
    }
  }
  return paths;
}

EngineAnswer Stager::fetch(const Part& part, RestorePlan& plan) {
  const RestoreSource& source = plan.sources[part.source];
  std::vector<std::string> paths = part.paths;
  for (int attempt = 1;; ++attempt) {
    const std::string folder = staging_.makePart(part.name);
    std::vector<std::string> stored;
    stored.reserve(paths.size());
    for (const std::string& path : paths) {
      stored.push_back(source.prefix + path);
    }
    std::vector<std::string> problems;
    EngineAnswer answer = engine_.restore(source.snapshot, stored, folder, problems, job_);
    noteProblems(part, problems, plan, answer.health);
    const bool isItsOwn = answer.health == Health::failed || answer.health == Health::full;
    if (answer || answer.health == Health::damaged) {
      return {};  // damaged files are missing, and the others are whole
    }
    if (!isItsOwn) {
      return answer;
    }
    // Files that a failed engine left are not to be trusted.
    removeTree(staging_.folder(), part.name);
    paths.clear();
    for (const auto& [path, file] : plan.files) {
      if (file.source == part.source && file.state == WantedFile::missing) {
        paths.push_back(path);
      }
    }
    if (problems.empty() || paths.empty() || attempt == kMostFetches || answer.health == Health::full) {
      failMissing(part, plan, answer.detail);
      staging_.makePart(part.name);
      return {};
    }
  }
}

// After a failure the other files are restored again, and that attempt reports their problems.
void Stager::noteProblems(const Part& part, std::vector<std::string> lines, RestorePlan& plan,
                          Health health) {
  const std::string& prefix = plan.sources[part.source].prefix;
  const std::string folder = staging_.makePart(part.name);
  bool leavesOut = false;
  for (std::string& line : lines) {
    for (std::size_t at = line.find(folder); at != std::string::npos; at = line.find(folder)) {
      line.erase(at, folder.size());
    }
    const std::optional<std::string> path = pathOf(line, prefix, plan);
    if (!path && options_.owner) {
      leavesOut = true;
    } else if (!path && health != Health::failed) {
      options_.problem(line + (line.ends_with('.') ? "" : "."));
    } else if (path) {
      noteProblemOf(part, *path, line.substr(prefix.size() + path->size() + 2), plan, health);
    }
  }
  if (leavesOut && health != Health::failed) {
    options_.problem("Some items could not be read from the repository.");
  }
}

void Stager::noteProblemOf(const Part& part, const std::string& path, const std::string& reason,
                           RestorePlan& plan, Health health) {
  WantedFile& file = plan.files.at(path);
  if (file.source != part.source || file.state == WantedFile::failed) {
    return;
  }
  struct stat status {};
  const std::string inStaging = part.name + plan.sources[part.source].prefix + path;
  const bool isThere = fstatat(staging_.folder(), inStaging.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                       !S_ISDIR(status.st_mode);
  if (health != Health::ready && !isThere) {
    file.state = WantedFile::failed;
    options_.problem(path + " is not restored: " + reason + ".");
  } else if (health != Health::failed && isThere) {
    options_.problem(path + " is restored, but not all of its mode, owner, times and attributes: " + reason +
                     ".");
  }
}

void Stager::failMissing(const Part& part, RestorePlan& plan, const std::string& reason) {
  const std::string sentence = " is not restored: " + reason + (reason.ends_with('.') ? "" : ".");
  for (auto& [path, file] : plan.files) {
    if (file.source == part.source && file.state == WantedFile::missing) {
      file.state = WantedFile::failed;
      options_.problem(path + sentence);
    }
  }
}

void Stager::filter(const Part& part, RestorePlan& plan) {
  const std::string& prefix = plan.sources[part.source].prefix;
  const Descriptor root(openFolderIn(staging_.folder(), part.name.c_str(), O_RDONLY));
  const std::vector<StagedFolder> way = openWay(root.get(), prefix);
  const int folder = endOf(way, root.get(), prefix);
  if (folder >= 0) {
    filterTree(folder, "/",
               [&](int parent, const std::string& name, const std::string& path, const struct stat& status) {
                 return stays(part.source, parent, name, path, status, plan);
               });
  }
}

bool Stager::stays(std::uint32_t source, int folder, const std::string& name, const std::string& path,
                   const struct stat& status, RestorePlan& plan) {
  auto found = plan.files.find(path);
  if (found == plan.files.end()) {
    found = plan.files.find(validUtf8(path));
  }
  // A catalogue that was made anew has names that are not UTF-8 with replacement characters, as the engine
  // reports them. Names that look alike are in it once.
  const bool isForSeveral =
      found != plan.files.end() && found->first.find("\xEF\xBF\xBD") != std::string::npos;
  const bool isWanted = found != plan.files.end() && found->second.source == source &&
                        (found->second.state == WantedFile::missing ||
                         (isForSeveral && found->second.state == WantedFile::staged));
  if (options_.owner && status.st_uid != *options_.owner) {
    if (isWanted) {
      found->second.state = WantedFile::failed;
      options_.problem(path + " is not restored: it belongs to another user.");
    }
    return false;
  }
  if (S_ISREG(status.st_mode)) {
    if (!isWanted) {
      return false;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size != found->second.size && !isForSeveral) {
      found->second.state = WantedFile::failed;
      options_.problem(path + " is not restored: it has " + std::to_string(size) + " bytes, and " +
                       std::to_string(found->second.size) + " were stored.");
      return false;
    }
    if (size >= kLeastSizeForHoles) {
      makeHoles(folder, name.c_str(), options_.mayGoOn);
    }
    found->second.state = WantedFile::staged;
    return true;
  }
  if (S_ISLNK(status.st_mode)) {
    if (isWanted) {
      found->second.state = WantedFile::staged;
    }
    // A link that is not in the plan was restored with its folder.
    return isWanted || found == plan.files.end();
  }
  const bool canBeMade = geteuid() == 0 && !options_.owner;
  if (isWanted) {
    found->second.state = canBeMade ? WantedFile::staged : WantedFile::failed;
  }
  if (!canBeMade) {
    options_.problem(path + " is not restored: only the administrator can make such special files.");
  }
  return canBeMade;
}

void Stager::compose(const Part& part, const RestorePlan& plan) {
  const std::string& prefix = plan.sources[part.source].prefix;
  const Descriptor root(openFolderIn(staging_.folder(), part.name.c_str(), O_RDONLY));
  if (options_.ownPlaces) {
    const std::vector<StagedFolder> way = openWay(root.get(), prefix);
    if (const int folder = endOf(way, root.get(), prefix); folder >= 0) {
      merge(folder);
    }
    return;
  }
  for (const PlannedItem& item : plan.items) {
    composeItem(root.get(), prefix, item);
  }
}

void Stager::composeItem(int root, const std::string& prefix, const PlannedItem& item) {
  constexpr const char* kPicked = "picked";
  const std::string parent = parentOf(prefix + item.path);
  mkdirat(staging_.folder(), kPicked, S_IRWXU);
  const Descriptor picked(openFolderIn(staging_.folder(), kPicked, O_RDONLY));
  {
    const std::vector<StagedFolder> way = openWay(root, parent);
    const int folder = endOf(way, root, parent);
    const std::string last = lastPathComponent(item.path);
    if (folder >= 0 && last == "/") {
      merge(folder);
    } else if (folder >= 0) {
      // A folder without write permission cannot be moved into another folder, so it is made writable
      // meanwhile.
      const StagedFolder itself(folder, last);
      moveToFreeName(folder, last.c_str(), picked.get(), item.name.c_str());
    }
  }
  merge(picked.get());
  removeTree(staging_.folder(), kPicked);
}

void Stager::merge(int folder) {
  DirectTarget target(
      Descriptor(openFolderIn(staging_.folder(), kResult, O_RDONLY)),
      {.conflict = Conflict::replace, .temporaryName = {}, .keepTimes = true, .again = false, .mayGoOn = {}});
  const PlaceWatch watch{
      .mayGoOn = [] { return true; },
      .begins = [](const std::string&) {},
      .placed = [](const TreeCount&) {},
      .skipped = [](const TreeCount&) {},
      .failed = [this](const TreeCount&, const std::string& sentence) { options_.problem(sentence); },
      .incomplete = [](const std::string&) {}};
  placeTree(folder, "/", target, watch);
}

}  // namespace keldane
