#include "daemon/server/DaemonService.h"

#include <pwd.h>

#include <cerrno>
#include <charconv>

#include "daemon/scan/disk/FileFacts.h"
#include "daemon/server/RestoreChoices.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

// Profile values and types are short. Longer texts are refused.
constexpr std::size_t kLongestText = 4096;

// The limit of one request.
constexpr std::size_t kMostPaths = 100'000;

bool isShortText(const PropertyList& text) {
  return text.isString() && !text.string().empty() && text.string().size() <= kLongestText;
}

std::string textOf(const PropertyList& text) { return std::string(text.string()); }

constexpr std::size_t kLongestName = 255;  // the longest name of a file

/// Whether a file can have exactly this type: a dot and the text after the last dot of a name.
bool isFileType(const std::string& type) {
  return type.size() < kLongestName && fileType("/name" + type) == type;
}

}  // namespace

const MethodSignature* DaemonService::methodSignatureForSelector(std::string_view selector) const {
  return KeldaneDaemonProtocol.find(selector);
}

void DaemonService::invoke(Invocation& invocation) {
  if (daemon_->verbose()) {
    PropertyList::Array arguments;
    for (const RawValue& argument : invocation.arguments) {
      arguments.push_back(argument.encoded());
    }
    systemLog("uid %u: %@ %@", access_.peer().uid, invocation.signature.selector,
              PropertyList::array(std::move(arguments)));
  }
  try {
    performDaemonCall(*this, invocation);
  } catch (const SQLite::Exception& error) {
    systemLog("The store cannot be used for %@: %s", invocation.signature.selector, error.what());
  }
}

std::optional<std::string> DaemonService::pathFrom(const PropertyList& value) {
  return value.isString() ? normalizedPath(value.string()) : std::nullopt;
}

// A longer list is refused as a whole, not carried out in part.
bool DaemonService::isShortList(const PropertyList& paths) const {
  if (paths.count() > kMostPaths) {
    systemLog("uid %u sent a list of %llu paths", access_.peer().uid, std::uint64_t{paths.count()});
    return false;
  }
  return true;
}

bool DaemonService::mayChangeSettings(const char* what) const {
  if (!access_.isPrivileged()) {
    systemLog("uid %u may not change %s", access_.peer().uid, what);
  }
  return access_.isPrivileged();
}

void DaemonService::setNumber(const char* key, std::uint32_t value) {
  if (daemon_->store().isFixed(Store::Table::settings, key)) {
    systemLog("uid %u may not change %s: the administrator has fixed it", access_.peer().uid, key);
  } else if (mayChangeSettings(key)) {
    daemon_->setSetting(key, value);
  }
}

void DaemonService::setPausedMinutes(std::uint32_t minutes) {
  if (mayChangeSettings("the pause")) {
    daemon_->pauseFor(minutes);
  }
}

PropertyList DaemonService::profileText(const char* key) {
  return daemon_->store().value(Store::Table::profile, key).value_or("");
}

PropertyList DaemonService::dictionaryForPath(const PropertyList& path, signed char withDirSizes) {
  const std::optional<std::string> asked = pathFrom(path);
  if (!asked || withDirSizes == 0) {
    return asked ? daemon_->nodes().node(access_, *asked, false) : PropertyList();
  }
  const WalkTurns::Turn mine = turn();
  return mine ? daemon_->nodes().node(access_, *asked, true) : PropertyList();
}

PropertyList DaemonService::dictionaryForPath(const PropertyList& path) {
  const std::optional<std::string> asked = pathFrom(path);
  return asked ? daemon_->nodes().nodeWithVersions(access_, *asked) : PropertyList();
}

PropertyList DaemonService::childrenDictionariesForPath(const PropertyList& path) {
  const std::optional<std::string> asked = pathFrom(path);
  if (!asked) {
    return {};
  }
  const WalkTurns::Turn mine = turn();
  return mine ? daemon_->nodes().children(access_, *asked) : PropertyList();
}

std::uint32_t DaemonService::changeRule(const PropertyList& path, std::optional<bool> included) {
  const std::optional<std::string> asked = pathFrom(path);
  const std::optional<PeerAccess::Item> item = asked ? access_.look(*asked) : std::nullopt;
  if (!item || !access_.mayChange(*item)) {
    if (asked) {
      systemLog("uid %u may not change the rule of %@", access_.peer().uid, *asked);
    }
    return path.isString() ? EACCES : EINVAL;
  }
  // A rule from before the path was barred can still be removed.
  if (included && daemon_->rules().decide(*asked, item->status && S_ISDIR(item->status->st_mode)).barred) {
    return EPERM;
  }
  // A missing path gets a rule only if something of it is in the backup; otherwise there could be rules
  // without end.
  if (included && !item->status && !daemon_->store().record(*asked) &&
      !daemon_->store().hasRecordBelow(*asked)) {
    return ENOENT;
  }
  const BackupWorker::Intention intention(daemon_->worker());
  try {
    if (!included) {
      daemon_->rules().removeRule(*asked);
    } else if (!daemon_->rules().setRule(*asked, *included)) {
      systemLog("There are too many rules for one on %@", *asked);
      return ENOSPC;
    }
  } catch (const SQLite::Exception& error) {
    systemLog("The rule of %@ cannot be kept: %s", *asked, error.what());
    return EIO;
  }
  daemon_->worker().endUnwantedPreferences(*asked);
  daemon_->worker().reconsider(*asked);
  return 0;
}

void DaemonService::addFilesToBackup(const PropertyList& paths) {
  const WalkTurns::Turn mine = turn();
  for (std::size_t i = 0; mine && isShortList(paths) && i < paths.count(); ++i) {
    changeRule(paths[i], true);
  }
}

void DaemonService::setPriorityBackup(const PropertyList& path) {
  const std::optional<std::string> asked = pathFrom(path);
  const std::optional<PeerAccess::Item> item = asked ? access_.look(*asked) : std::nullopt;
  if (item && item->status && isStorable(*item->status) && access_.mayChange(*item) &&
      daemon_->rules().decide(*asked, false).selected) {
    daemon_->worker().prioritize(*asked);
  }
}

PropertyList DaemonService::policyExcludeList() {
  const std::vector<std::string> policy = daemon_->rules().policy();
  return PropertyList::array({policy.begin(), policy.end()});
}

PropertyList DaemonService::excludedFiles(const PropertyList& path) {
  const std::optional<std::string> asked = pathFrom(path);
  if (!asked || !access_.sees(*asked)) {
    return {};
  }
  const WalkTurns::Turn mine = turn();
  PropertyList::Array excluded;
  for (const std::string& rulePath :
       mine ? daemon_->rules().excludedAt(*asked) : std::vector<std::string>()) {
    if (access_.sees(rulePath)) {
      excluded.emplace_back(rulePath);
    }
  }
  return PropertyList::array(std::move(excluded));
}

void DaemonService::setFileTypeToggle(const PropertyList& type, std::uint32_t toggle) {
  if (!type.isString() || !mayChangeSettings("a file type's rule")) {
    return;
  }
  const bool isRule = toggle == kTypeBackup || toggle == kTypeExclude;
  if (toggle != kTypeNone && (!isRule || !isFileType(textOf(type)))) {
    systemLog("No rule can be kept for the file type \"%@\": %s", textOf(type).substr(0, kLongestName),
              !isRule                              ? "there is no such rule"
              : textOf(type).size() > kLongestName ? "no file's name is that long"
                                                   : "no file has that type");
    return;
  }
  const BackupWorker::Intention intention(daemon_->worker());
  daemon_->rules().setType(textOf(type), toggle);
  daemon_->worker().endUnwantedPreferences(daemon_->rules().root());
  daemon_->worker().reconsider(daemon_->rules().root());
}

std::uint32_t DaemonService::getFileTypeToggle(const PropertyList& type) {
  return daemon_->rules().type(textOf(type));
}

std::uint32_t DaemonService::addRestore(RestoreRequest request) {
  request.user = access_.peer().uid;
  request.group = access_.peer().gid;
  request.groups = access_.peer().groups;
  std::string refusal;
  const std::uint32_t job = daemon_->restores().add(request, &refusal);
  if (job == 0) {
    systemLog("uid %u cannot restore: %@", access_.peer().uid, refusal);
  }
  return job;
}

// If `toPath` is an existing folder, the item is restored into it under its own name; otherwise to exactly
// that path. Without `toPath` it is restored to its own place.
std::uint32_t DaemonService::restoreFile(const PropertyList& path, const PropertyList& toPath,
                                         std::uint32_t version, std::uint32_t priority) {
  const std::optional<std::string> asked = pathFrom(path);
  const bool hasTarget = toPath.isString() && !toPath.string().empty();
  const std::optional<std::string> target = hasTarget ? pathFrom(toPath) : std::nullopt;
  if (!asked || (hasTarget && !target)) {
    systemLog("uid %u asked for a restore without a usable path", access_.peer().uid);
    return 0;
  }
  RestoreRequest request;
  request.items.push_back({*asked, version});
  request.priority = priority;
  if (target) {
    const std::optional<struct stat> status = statusOf(*target);
    (status && S_ISDIR(status->st_mode) ? request.target : request.exactPath) = *target;
  }
  return addRestore(std::move(request));
}

std::uint32_t DaemonService::getRestoreJobStatus(std::uint32_t job) {
  const std::optional<uid_t> user = daemon_->restores().userOf(job);
  const bool mayKnow = user && (access_.isPrivileged() || *user == access_.peer().uid);
  return static_cast<std::uint32_t>(mayKnow ? daemon_->restores().report(job).status
                                            : RestoreStatus::unknown);
}

void DaemonService::cancelAllRestoreJobs() {
  if (mayChangeSettings("the restores")) {
    daemon_->restores().cancelAll();
  }
}

signed char DaemonService::restoreWithChoices(const PropertyList& choices) {
  std::string refusal;
  std::optional<RestoreRequest> request = restoreRequestFrom(choices, &refusal);
  if (!request || !isShortList(choices["files"])) {
    systemLog("uid %u asked for a restore that cannot be understood: %@", access_.peer().uid, refusal);
    return 0;
  }
  return addRestore(std::move(*request)) != 0 ? 1 : 0;
}

void DaemonService::showRestoreWizard() {
  daemon_->announce("showRestoreWizard:", PropertyList::dictionary({{"user", access_.peer().uid}}));
}

PropertyList DaemonService::stringForState(std::uint32_t index) {
  const PropertyList value = stateValue(index);
  return value ? PropertyList(value.description()) : PropertyList();
}

PropertyList DaemonService::backupColorsForFiles(const PropertyList& paths) {
  const WalkTurns::Turn mine = turn();
  if (!mine || !isShortList(paths)) {
    return {};
  }
  PropertyList::Array colors;
  for (std::size_t i = 0; i < paths.count(); ++i) {
    const std::optional<std::string> asked = pathFrom(paths[i]);
    colors.emplace_back(asked ? daemon_->nodes().color(access_, *asked) : 0);
  }
  return PropertyList::array(std::move(colors));
}

PropertyList DaemonService::stringValueForProfileKey(const PropertyList& key) {
  if (textOf(key) == kIgnoredKey) {
    return daemon_->rules().ignored();
  }
  const std::optional<std::string> value = daemon_->store().value(Store::Table::profile, textOf(key));
  return value ? PropertyList(*value) : PropertyList();
}

void DaemonService::setValueForProfileKey(const PropertyList& key, const PropertyList& withString) {
  if (isShortText(key) && withString.isString() && withString.string().size() <= kLongestText &&
      mayChangeSettings("the profile")) {
    if (textOf(key) == kIgnoredKey) {
      daemon_->rules().setIgnored(textOf(withString));
      daemon_->worker().reconsiderAll();
    } else {
      daemon_->store().setValue(Store::Table::profile, textOf(key), textOf(withString));
    }
  }
}

PropertyList DaemonService::computerNumber() {
  std::int64_t number = 0;
  const std::string text = daemon_->store().value(Store::Table::profile, "ComputerNumber").value_or("0");
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number != 0 ? number : std::int64_t{daemon_->computerNumber()};
}

PropertyList DaemonService::backedupStateString() {
  const PropertyList value = state();
  return stringWithFormat("%@ files, %@ bytes backed up", value["backedUpFileCount"],
                          value["backedupFileSize"]);
}

PropertyList DaemonService::mappedUserAsString(const PropertyList& user) {
  passwd entry{};
  passwd* found = nullptr;
  char buffer[16384];
  if (user.isNumber() && getpwuid_r(user.unsignedIntValue(), &entry, buffer, sizeof(buffer), &found) == 0 &&
      found != nullptr) {
    return found->pw_name;
  }
  return user.isString() ? user : PropertyList();
}

void DaemonService::terminate() {
  if (mayChangeSettings("whether the daemon runs")) {
    daemon_->terminate();
  }
}

}  // namespace keldane
