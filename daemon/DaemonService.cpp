#include "daemon/DaemonService.h"

#include <pwd.h>

#include <cerrno>
#include <charconv>

#include "daemon/FileFacts.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

// A profile and the type rules are small; a client that writes without end is not humoured.
constexpr std::size_t kLongestText = 4096;

bool isShortText(const PropertyList& text) {
  return text.isString() && !text.string().empty() && text.string().size() <= kLongestText;
}

std::string textOf(const PropertyList& text) { return std::string(text.string()); }

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
    systemLog("uid %u: %@ %@", peer_.uid, invocation.signature.selector,
              PropertyList::array(std::move(arguments)));
  }
  try {
    performDaemonCall(*this, invocation);
  } catch (const SQLite::Exception& error) {
    systemLog("The store cannot be used for %@: %s", invocation.signature.selector, error.what());
  }
}

// Absent for what is no path, and for what the peer could not read by itself.
std::optional<std::string> DaemonService::readablePath(const PropertyList& path) const {
  std::optional<std::string> normal = path.isString() ? normalizedPath(path.string()) : std::nullopt;
  if (normal && !privileged_ && !mayRead(peer_, *normal)) {
    if (daemon_->verbose()) {
      systemLog("uid %u may not ask about %@", peer_.uid, *normal);
    }
    return std::nullopt;
  }
  return normal;
}

bool DaemonService::mayChangeSettings(const char* what) const {
  if (!privileged_) {
    systemLog("uid %u may not change %s", peer_.uid, what);
  }
  return privileged_;
}

void DaemonService::setNumber(const char* key, std::uint32_t value) {
  if (mayChangeSettings(key)) {
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
  const std::optional<std::string> readable = readablePath(path);
  return readable ? daemon_->nodes().node(*readable, withDirSizes != 0) : PropertyList();
}

PropertyList DaemonService::childrenDictionariesForPath(const PropertyList& path) {
  const std::optional<std::string> readable = readablePath(path);
  return readable ? daemon_->nodes().children(*readable) : PropertyList();
}

std::uint32_t DaemonService::changeRule(const PropertyList& path, std::optional<bool> included) {
  const std::optional<std::string> readable = readablePath(path);
  if (!readable) {
    return path.isString() ? EACCES : EINVAL;
  }
  const std::optional<struct stat> status = statusOf(*readable);
  if (daemon_->rules().decide(*readable, status && S_ISDIR(status->st_mode)).barred) {
    return EPERM;
  }
  try {
    if (included) {
      daemon_->rules().setRule(*readable, *included);
    } else {
      daemon_->rules().removeRule(*readable);
    }
  } catch (const SQLite::Exception& error) {
    systemLog("The rule of %@ cannot be kept: %s", *readable, error.what());
    return EIO;
  }
  daemon_->worker().reconsider(*readable);
  return 0;
}

void DaemonService::addFilesToBackup(const PropertyList& paths) {
  for (std::size_t i = 0; i < paths.count(); ++i) {
    changeRule(paths[i], true);
  }
}

void DaemonService::setPriorityBackup(const PropertyList& path) {
  const std::optional<std::string> readable = readablePath(path);
  if (!readable) {
    return;
  }
  const std::optional<struct stat> status = statusOf(*readable);
  if (status && S_ISREG(status->st_mode) && daemon_->rules().decide(*readable, false).selected) {
    daemon_->worker().prioritize(*readable);
  }
}

PropertyList DaemonService::policyExcludeList() {
  const std::vector<std::string>& policy = daemon_->rules().policy();
  return PropertyList::array({policy.begin(), policy.end()});
}

PropertyList DaemonService::excludedFiles(const PropertyList& path) {
  const std::optional<std::string> readable = readablePath(path);
  if (!readable) {
    return {};
  }
  PropertyList::Array excluded;
  for (const std::string& rulePath : daemon_->rules().excludedAt(*readable)) {
    if (privileged_ || mayRead(peer_, rulePath)) {
      excluded.emplace_back(rulePath);
    }
  }
  return PropertyList::array(std::move(excluded));
}

void DaemonService::setFileTypeToggle(const PropertyList& type, std::uint32_t toggle) {
  if (isShortText(type) && (toggle == kTypeBackup || toggle == kTypeExclude) &&
      mayChangeSettings("a file type's rule")) {
    daemon_->rules().setType(textOf(type), toggle);
    daemon_->worker().reconsider(daemon_->rules().root());
  }
}

std::uint32_t DaemonService::getFileTypeToggle(const PropertyList& type) {
  return daemon_->rules().type(textOf(type));
}

// Contents are not stored, so nothing can be restored; 0 is no job.
std::uint32_t DaemonService::restoreFile(const PropertyList& path, const PropertyList& /*toPath*/,
                                         std::uint32_t /*version*/, std::uint32_t /*priority*/) {
  systemLog("%@ cannot be restored: this store keeps no contents", path);
  return 0;
}

std::uint32_t DaemonService::getRestoreJobStatus(std::uint32_t /*job*/) { return ENOENT; }

signed char DaemonService::restoreWithChoices(const PropertyList& /*choices*/) { return 0; }

PropertyList DaemonService::stringForState(std::uint32_t index) {
  const PropertyList value = stateValue(index);
  return value ? PropertyList(value.description()) : PropertyList();
}

PropertyList DaemonService::backupColorsForFiles(const PropertyList& paths) {
  PropertyList::Array colors;
  for (std::size_t i = 0; i < paths.count(); ++i) {
    const std::optional<std::string> readable = readablePath(paths[i]);
    colors.emplace_back(readable ? daemon_->nodes().color(*readable) : 0);
  }
  return PropertyList::array(std::move(colors));
}

PropertyList DaemonService::stringValueForProfileKey(const PropertyList& key) {
  const std::optional<std::string> value = daemon_->store().value(Store::Table::profile, textOf(key));
  return value ? PropertyList(*value) : PropertyList();
}

void DaemonService::setValueForProfileKey(const PropertyList& key, const PropertyList& withString) {
  if (isShortText(key) && withString.isString() && withString.string().size() <= kLongestText &&
      mayChangeSettings("the profile")) {
    daemon_->store().setValue(Store::Table::profile, textOf(key), textOf(withString));
  }
}

PropertyList DaemonService::computerNumber() {
  std::int64_t number = 0;
  const std::string text = daemon_->store().value(Store::Table::profile, "ComputerNumber").value_or("0");
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

PropertyList DaemonService::backedupStateString() {
  const PropertyList state = daemon_->state();
  return stringWithFormat("%@ files, %@ bytes backed up", state["backedUpFileCount"],
                          state["backedupFileSize"]);
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
