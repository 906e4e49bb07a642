#include "daemon/rules/RuleBook.h"

#include <algorithm>
#include <climits>
#include <filesystem>

#include "platform/files/Path.h"
#include "platform/syslog/SystemLog.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

// A mark that cannot be kept is found again by the next look at the disk.
template <class Write>
void keep(const Write& write) {
  try {
    write();
  } catch (const SQLite::Exception& error) {
    systemLog("What was found on the disk cannot be kept: %s", error.what());
  }
}

// This constant has no destructor, because threads of peers may still use it while the process ends.
constexpr std::string_view kRestoreFolder = "/.keldane-restore-";
static_assert(kRestoreFolder.substr(1) == kRestoreFolderPrefix);

}  // namespace

std::optional<std::string> normalizedPath(std::string_view path) {
  if (path.size() >= PATH_MAX || !path.starts_with('/') || path.find('\0') != std::string_view::npos ||
      !isValidUtf8(path)) {
    return std::nullopt;
  }
  std::string normal = std::filesystem::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.ends_with('/')) {
    normal.pop_back();
  }
  return normal;
}

std::string fileType(const std::string& path) { return "." + pathExtension(path); }

RuleBook::RuleBook(Store& store, std::string root, std::vector<std::string> policy, std::size_t mostRules)
    : store_(store),
      root_(std::move(root)),
      policy_(std::move(policy)),
      mostRules_(mostRules),
      types_(store.types()) {
  const std::map<std::string, bool> rules = store.rules();
  rules_ = Rules(rules.begin(), rules.end());
  for (const auto& [path, mark] : store.marks()) {
    marks_[path] = mark <= static_cast<std::uint32_t>(Mark::otherFileSystem) ? Mark(mark) : Mark::none;
  }
  if (const std::optional<std::string> text = store.value(Store::Table::profile, kIgnoredKey)) {
    ignored_ = IgnoreList(*text);
  }
}

bool RuleBook::isBarred(const std::string& path) const {
  return !isAtOrBelow(path, root_) || (!repository_.empty() && isAtOrBelow(path, repository_)) ||
         path.find(kRestoreFolder) != std::string::npos ||
         std::any_of(policy_.begin(), policy_.end(),
                     [&](const std::string& barred) { return isAtOrBelow(path, barred); });
}

std::vector<std::string> RuleBook::policy() const {
  std::vector<std::string> policy = policy_;
  const ScopedLock guard(mutex_);
  if (!repository_.empty()) {
    policy.push_back(repository_);
  }
  return policy;
}

void RuleBook::barRepository(const std::string& folder) {
  const ScopedLock guard(mutex_);
  repository_ = folder;
}

Decision RuleBook::decide(const std::string& path, bool isDirectory) const {
  const ScopedLock guard(mutex_);
  return decideUnderLock(path, isDirectory);
}

Decision RuleBook::decideUnderLock(const std::string& path, bool isDirectory) const {
  Decision decision;
  decision.barred = isBarred(path);
  if (!isDirectory && !types_.empty()) {
    const auto type = types_.find(fileType(path));
    decision.typeToggle = type == types_.end() ? 0 : type->second;
  }
  const auto below = firstBelow(path);
  decision.rulesBelow = isDirectory && below != rules_.end() && isAtOrBelow(below->first, path);
  if (decision.barred) {
    return decision;
  }
  if (const auto own = rules_.find(path); own != rules_.end()) {
    decision.ownRule = own->second;
    decision.selected = own->second;
  } else {
    bool isIgnored = ignore(path, isDirectory, decision);
    for (std::string_view above = path; !isIgnored && above.size() > 1;) {
      above = parentPath(above);
      const auto rule = rules_.find(above);
      if (rule != rules_.end()) {
        decision.selected = rule->second;
        break;
      }
      isIgnored = ignore(above, true, decision);
    }
    if (!isIgnored && (decision.typeToggle == kTypeBackup || decision.typeToggle == kTypeExclude)) {
      decision.selected = decision.typeToggle == kTypeBackup;
    }
  }
  decision.mayHold = isDirectory && (decision.selected || decision.rulesBelow ||
                                     (decision.ignoredAt.empty() && selectsTypes()));
  return decision;
}

std::optional<Reason> RuleBook::bar(const std::string& path) const {
  if (!isAtOrBelow(path, root_)) {
    return Reason{Reason::Kind::root, root_, false, {}};
  }
  std::string barred;
  if (!repository_.empty() && isAtOrBelow(path, repository_)) {
    barred = repository_;
  }
  for (const std::string& policy : policy_) {
    barred = isAtOrBelow(path, policy) ? policy : barred;
  }
  // The path lies in the folder of an unfinished restore.
  if (const std::size_t folder = path.find(kRestoreFolder); folder != std::string::npos && barred.empty()) {
    barred = path.substr(0, path.find('/', folder + 1));
  }
  return barred.empty() ? std::nullopt : std::optional(Reason{Reason::Kind::policy, barred, false, {}});
}

std::vector<Reason> RuleBook::explain(const std::string& path, bool isDirectory) const {
  std::vector<Reason> reasons;
  const ScopedLock guard(mutex_);
  if (std::optional<Reason> barred = bar(path)) {
    reasons.push_back(std::move(*barred));
  }
  const auto addRule = [&](Reason::Kind kind, const std::string& place) KELDANE_REQUIRES(mutex_) {
    if (const auto rule = rules_.find(place); rule != rules_.end()) {
      reasons.push_back({kind, place, rule->second, {}});
    }
  };
  const Decision decision = decideUnderLock(path, isDirectory);
  if (!decision.ignoring.empty()) {
    reasons.push_back({Reason::Kind::ignored, decision.ignoredAt, false, decision.ignoring});
  }
  addRule(Reason::Kind::own, path);
  const auto type = isDirectory ? types_.end() : types_.find(fileType(path));
  if (type != types_.end() && (type->second == kTypeBackup || type->second == kTypeExclude)) {
    reasons.push_back({Reason::Kind::type, type->first, type->second == kTypeBackup, {}});
  }
  for (std::string above = path; above.size() > 1;) {
    above.resize(std::max<std::size_t>(above.rfind('/'), 1));
    addRule(Reason::Kind::folder, above);
  }
  if (reasons.empty()) {
    reasons.push_back({});
  }
  return reasons;
}

bool RuleBook::ignore(std::string_view path, bool isDirectory, Decision& decision) const {
  const auto mark = marks_.find(path);
  decision.ignoring = mark != marks_.end() && ignored_.heeds(mark->second)
                          ? lineOf(mark->second)
                          : ignored_.match(path, isDirectory);
  if (!decision.ignoring.empty()) {
    decision.ignoredAt = path;
  }
  return !decision.ignoring.empty();
}

bool RuleBook::selectsTypes() const {
  return std::any_of(types_.begin(), types_.end(),
                     [](const auto& entry) { return entry.second == kTypeBackup; });
}

std::optional<bool> RuleBook::decideFiles(const std::string& folder) const {
  const ScopedLock guard(mutex_);
  const std::string below = folder == "/" ? folder : folder + '/';
  const auto isBelow = [&](const std::string& path) { return path.starts_with(below); };
  const auto rule = firstBelow(folder);
  const auto mark = marks_.lower_bound(below);
  if (!types_.empty() || ignored_.isForFiles() || isBelow(repository_) ||
      (rule != rules_.end() && isBelow(rule->first)) || (mark != marks_.end() && isBelow(mark->first)) ||
      std::any_of(policy_.begin(), policy_.end(), isBelow) || isBelow(root_)) {
    return std::nullopt;
  }
  return decideUnderLock(folder, true).selected;
}

std::string RuleBook::ignored() const {
  const ScopedLock guard(mutex_);
  return ignored_.text();
}

void RuleBook::setIgnored(const std::string& text) {
  store_.setValue(Store::Table::profile, kIgnoredKey, text);
  const ScopedLock guard(mutex_);
  ignored_ = IgnoreList(text);
}

bool RuleBook::heeds(Mark mark) const {
  const ScopedLock guard(mutex_);
  return ignored_.heeds(mark);
}

bool RuleBook::setMark(const std::string& path, Mark mark) {
  {
    const ScopedLock guard(mutex_);
    const auto known = marks_.find(path);
    if (known == marks_.end() ? mark == Mark::none : mark == known->second) {
      return false;
    }
    if (mark == Mark::none) {
      marks_.erase(known);
    } else {
      marks_[path] = mark;
    }
  }
  keep([&] { store_.setMark(path, static_cast<std::uint32_t>(mark)); });
  return true;
}

bool RuleBook::isMarked(const std::string& path, Mark mark) const {
  const ScopedLock guard(mutex_);
  const auto known = marks_.find(path);
  return known != marks_.end() && known->second == mark;
}

void RuleBook::dropMarks(const std::string& path) {
  bool isAny = false;
  {
    const ScopedLock guard(mutex_);
    isAny = marks_.erase(path) > 0;
    const std::string below = path == "/" ? path : path + '/';
    for (auto mark = marks_.lower_bound(below); mark != marks_.end() && mark->first.starts_with(below);) {
      mark = marks_.erase(mark);
      isAny = true;
    }
  }
  if (isAny) {
    keep([&] { store_.removeMarks(path); });
  }
}

bool RuleBook::setRule(const std::string& path, bool included) {
  {
    const ScopedLock guard(mutex_);
    if (rules_.size() >= mostRules_ && !rules_.contains(path)) {
      return false;
    }
  }
  store_.setRule(path, included);
  const ScopedLock guard(mutex_);
  rules_[path] = included;
  return true;
}

void RuleBook::removeRule(const std::string& path) {
  store_.removeRule(path);
  const ScopedLock guard(mutex_);
  rules_.erase(path);
}

void RuleBook::setType(const std::string& type, std::uint32_t toggle) {
  if (toggle == kTypeNone) {
    store_.removeType(type);
    const ScopedLock guard(mutex_);
    types_.erase(type);
    return;
  }
  store_.setType(type, toggle);
  const ScopedLock guard(mutex_);
  types_[type] = toggle;
}

std::uint32_t RuleBook::type(const std::string& type) const {
  const ScopedLock guard(mutex_);
  const auto found = types_.find(type);
  return found == types_.end() ? 0 : found->second;
}

bool RuleBook::isEmpty() const {
  const ScopedLock guard(mutex_);
  return rules_.empty() && types_.empty();
}

std::vector<std::string> RuleBook::places() const {
  const ScopedLock guard(mutex_);
  if (selectsTypes()) {
    return {root_};  // a type that is backed up may be anywhere
  }
  std::vector<std::string> places;
  for (const auto& [path, included] : rules_) {
    if (included && (places.empty() || !isAtOrBelow(path, places.back()))) {
      places.push_back(path);
    }
  }
  return places;
}

RuleBook::Rules::const_iterator RuleBook::firstBelow(const std::string& path) const {
  return rules_.upper_bound(path == "/" ? path : path + '/');
}

std::vector<std::string> RuleBook::rulesBelow(const std::string& path) const {
  const ScopedLock guard(mutex_);
  std::vector<std::string> below;
  for (auto rule = firstBelow(path); rule != rules_.end() && isAtOrBelow(rule->first, path); ++rule) {
    below.push_back(rule->first);
  }
  return below;
}

std::vector<std::string> RuleBook::excludedAt(const std::string& path) const {
  const ScopedLock guard(mutex_);
  std::vector<std::string> excluded;
  for (const auto& [rulePath, included] : rules_) {
    if (!included && isAtOrBelow(rulePath, path)) {
      excluded.push_back(rulePath);
    }
  }
  return excluded;
}

}  // namespace keldane
