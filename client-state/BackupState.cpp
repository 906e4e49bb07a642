#include "client-state/BackupState.h"

#include "client-state/DefaultsDB.h"
#include "log/KeldaneLog.h"
#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Absent.h"

extern "C" {
const char KeldaneBackupStateConnectionChangedNotification[] =
    "KeldaneBackupStateConnectionChangedNotification";
const char KeldaneBackupStateChangedNotification[] = "KeldaneBackupStateChangedNotification";
const char LAST_ACCT_EMAIL_STRING[] = "lastAcctEmailStr";
const char LAST_SERVER_URL_STRING[] = "lastServerURLStr";
const char LAST_COMPUTER_NUM_INT[] = "lastComputerNumberInt";
const char LAST_SKIN_ID_STRING[] = "lastSkinIdStr";
}

namespace keldane {

namespace {

constexpr RunLoop::Seconds kPollInterval{2.0};

constexpr char kQuotaLimitedKey[] = "isQuotaLimited";

}  // namespace

void BackupState::onBegin() {
  KeldaneCLog("BackupState:onBegin - opening connection");
  connection_ = ConnectionController::initWithProxyDelegate(proxyDelegate_);
  connection_->setBundle(bundle_);
  if (disableConnectTimer_) {
    connection_->disableConnectTimer();
  }
  NotificationCenter::defaultCenter().addObserver(
      this, KeldaneConnectionReadyChangedNotification, connection_.get(),
      [this](const Notification&) { daemonConnectionChangedNotification(); });
  connection_->start();
}

void BackupState::onEnd() {
  stopStatusTimer();
  const auto unregister = [this] {
    NotificationCenter::defaultCenter().removeObserver(this, KeldaneConnectionReadyChangedNotification,
                                                       connection_.get());
    connection_.reset();
  };
  try {
    // This object is still registered here, so that its own observers are told of the end.
    sendTo(connection_, &ConnectionController::stop);
  } catch (...) {  // an observer threw; the notification centre must not keep a deleted object
    unregister();
    throw;
  }
  unregister();
}

bool BackupState::connected() const { return sendTo(connection_, &ConnectionController::connected); }

std::shared_ptr<KeldaneProxy> BackupState::proxy() const {
  return connected() ? connection_->proxy() : nullptr;
}

void BackupState::daemonConnectionChangedNotification() {
  NotificationCenter& center = NotificationCenter::defaultCenter();
  if (!connected()) {
    stopStatusTimer();
    center.post(KeldaneBackupStateConnectionChangedNotification, this);
    return;
  }
  center.post(KeldaneBackupStateConnectionChangedNotification, this);
  if (wantsStateChangedNotifications_ && connected()) {  // an observer may have ended it meanwhile
    statusTimer_ = RunLoop::current().scheduleTimer(kPollInterval, true, [this](Timer&) { onStatusTimer(); });
    onStatusTimer();
  }
}

void BackupState::stopStatusTimer() {
  sendTo(statusTimer_, &Timer::invalidate);
  statusTimer_.reset();
}

void BackupState::updateDaemonState() {
  if (!connected()) {
    return;
  }
  const std::optional<PropertyList> answer = performSelector("daemonState", {});
  if (!answer) {
    return;
  }
  const PropertyList& newState = *answer;
  // An absent state equals nothing, not even another absent one: such an answer is announced each time.
  if (daemonState_ && daemonState_ == newState) {
    return;
  }
  daemonState_ = newState;
  if (KeldaneLogEnabled()) {
    KeldaneCLog("daemonState: %@", newState);
  }
  NotificationCenter::defaultCenter().post(KeldaneBackupStateChangedNotification, this, daemonState_);
}

// A method whose name has no colon is called without the argument. The result is an empty optional when the
// link failed before the daemon answered. The daemon's answer may be an absent value.
std::optional<PropertyList> BackupState::performSelector(std::string_view method,
                                                         const PropertyList& argument) const {
  Arguments arguments;
  if (method.find(':') != std::string_view::npos && argument) {
    arguments.push_back(RawValue::of<'@'>(argument));
  }
  const RawValue answer = sendTo(proxy(), &KeldaneProxy::call, method, std::move(arguments));
  return answer.code() == '@' ? std::optional(answer.as<'@'>()) : std::nullopt;
}

PropertyList BackupState::proxyOrCacheStringWithArg(std::string_view method, const PropertyList& arg,
                                                    const char* forItem) const {
  const std::optional<PropertyList> answer = performSelector(method, arg);
  if (!answer) {
    const PropertyList stored = DefaultsDB::stringProperty(forItem);
    return stored ? stored : PropertyList("");
  }
  // An answer of another kind counts as empty: the shared preferences hold text here.
  const PropertyList result = answer->isString() ? *answer : PropertyList("");
  // The values are compared first, so that the shared preferences are written only for a change.
  const PropertyList stored = DefaultsDB::stringProperty(forItem);
  if (!DefaultsDB::lastReadOK() || stored != result) {
    DefaultsDB::setStringProperty(result, forItem);
  }
  return result;
}

PropertyList BackupState::proxyOrCacheInt(std::string_view method, const char* forItem) const {
  const std::optional<PropertyList> answer = performSelector(method, {});
  if (!answer) {
    return DefaultsDB::intProperty(forItem);  // 0 when there is none
  }
  const PropertyList result = answer->isNumber() ? *answer : PropertyList(answer->intValue());
  const std::int32_t stored = DefaultsDB::intProperty(forItem);
  if (!DefaultsDB::lastReadOK() || stored != result.intValue()) {
    DefaultsDB::setIntProperty(result.intValue(), forItem);
  }
  return result;
}

bool BackupState::isQuotaLimited() const {
  const std::int32_t stored = DefaultsDB::intProperty(kQuotaLimitedKey);
  const bool wasStored = DefaultsDB::lastReadOK();
  if (!connected()) {
    return wasStored && stored == 1;  // any other number reads as false
  }
  const bool limited = state(kQuotaLimitedKey).boolValue();
  if (!wasStored || (stored == 1) != limited) {
    DefaultsDB::setIntProperty(limited ? 1 : 0, kQuotaLimitedKey);
  }
  return limited;
}

}  // namespace keldane
