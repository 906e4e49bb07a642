#include "daemon/rules/RuleBook.h"

#include <algorithm>
#include <climits>
#include <filesystem>

#include "platform/files/Path.h"
#include "platform/plist/Unicode.h"

namespace keldane {

bool isAtOrBelow(std::string_view path, std::string_view folder) {
  return folder == "/" ||
         (path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/'));
}

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
      rules_(store.rules()),
      types_(store.types()) {}

bool RuleBook::isBarred(const std::string& path) const {
  return !isAtOrBelow(path, root_) || (!repository_.empty() && isAtOrBelow(path, repository_)) ||
         path.find("/" + std::string(kRestoreFolderPrefix)) != std::string::npos ||
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
  Decision decision;
  const ScopedLock guard(mutex_);
  decision.barred = isBarred(path);
  if (!isDirectory) {
    const auto type = types_.find(fileType(path));
    decision.typeToggle = type == types_.end() ? 0 : type->second;
  }
  const auto below = firstBelow(path);
  decision.rulesBelow = isDirectory && below != rules_.end() && isAtOrBelow(below->first, path);
  if (decision.barred) {
    return decision;
  }
  const auto own = rules_.find(path);
  if (own != rules_.end()) {
    decision.ownRule = own->second;
    decision.selected = own->second;
    return decision;
  }
  if (decision.typeToggle == kTypeBackup || decision.typeToggle == kTypeExclude) {
    decision.selected = decision.typeToggle == kTypeBackup;
    return decision;
  }
  for (std::string above = path; above.size() > 1;) {
    const std::size_t slash = above.rfind('/');
    above.resize(std::max<std::size_t>(slash, 1));
    const auto rule = rules_.find(above);
    if (rule != rules_.end()) {
      decision.selected = rule->second;
      break;
    }
  }
  return decision;
}

std::optional<Reason> RuleBook::bar(const std::string& path) const {
  if (!isAtOrBelow(path, root_)) {
    return Reason{Reason::Kind::root, root_, false};
  }
  std::string barred;
  if (!repository_.empty() && isAtOrBelow(path, repository_)) {
    barred = repository_;
  }
  for (const std::string& policy : policy_) {
    barred = isAtOrBelow(path, policy) ? policy : barred;
  }
  // The folder of a restore that is not finished.
  if (const std::size_t folder = path.find("/" + std::string(kRestoreFolderPrefix));
      folder != std::string::npos && barred.empty()) {
    barred = path.substr(0, path.find('/', folder + 1));
  }
  return barred.empty() ? std::nullopt : std::optional(Reason{Reason::Kind::policy, barred, false});
}

std::vector<Reason> RuleBook::explain(const std::string& path, bool isDirectory) const {
  std::vector<Reason> reasons;
  const ScopedLock guard(mutex_);
  if (std::optional<Reason> barred = bar(path)) {
    reasons.push_back(std::move(*barred));
  }
  const auto addRule = [&](Reason::Kind kind, const std::string& place) KELDANE_REQUIRES(mutex_) {
    if (const auto rule = rules_.find(place); rule != rules_.end()) {
      reasons.push_back({kind, place, rule->second});
    }
  };
  addRule(Reason::Kind::own, path);
  const auto type = isDirectory ? types_.end() : types_.find(fileType(path));
  if (type != types_.end() && (type->second == kTypeBackup || type->second == kTypeExclude)) {
    reasons.push_back({Reason::Kind::type, type->first, type->second == kTypeBackup});
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
  if (std::any_of(types_.begin(), types_.end(),
                  [](const auto& entry) { return entry.second == kTypeBackup; })) {
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

std::map<std::string, bool>::const_iterator RuleBook::firstBelow(const std::string& path) const {
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
