// The clients' single facade to the backup daemon.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Common/calls/Invocation.h"
#include "client-state/ConnectionController.h"
#include "platform/bundle/Bundle.h"
#include "platform/plist/PropertyList.h"
#include "platform/runloop/RunLoop.h"

extern "C" {
/// Sent by a BackupState each time its connection is made or lost, the last time during `onEnd`.
extern const char KeldaneBackupStateConnectionChangedNotification[];
/// Sent by a BackupState after each poll that brought something new, with the state dictionary as user
/// information.
extern const char KeldaneBackupStateChangedNotification[];

/// The preference keys of the account values that are remembered.
extern const char LAST_ACCT_EMAIL_STRING[];
extern const char LAST_SERVER_URL_STRING[];
extern const char LAST_COMPUTER_NUM_INT[];
extern const char LAST_SKIN_ID_STRING[];
}

namespace keldane {

/// Every question and command to the daemon passes through this class. It owns the connection between
/// `onBegin` and `onEnd` and polls the daemon's state when asked to. It answers questions from the last
/// state, forwards calls, and remembers account values for times when the daemon is away. Without a
/// connection a forwarded call does nothing and yields zero, false or absent.
///
/// One client owns it and calls `onEnd` before it deletes it. Main thread only; takes no locks.
class BackupState {
 public:
  BackupState() : bundle_(Bundle::mainBundle()) {}
  BackupState(const BackupState&) = delete;
  BackupState& operator=(const BackupState&) = delete;

  /// The bundle whose "DaemonPath" names the daemon's socket. To be called before `onBegin`.
  void setBundle(std::shared_ptr<Bundle> bundle) { bundle_ = std::move(bundle); }
  /// The object that receives the daemon's calls; not owned.
  void setProxyDelegate(std::weak_ptr<InvocationTarget> delegate) { proxyDelegate_ = std::move(delegate); }
  /// Starts polling the daemon's state every 2 seconds while connected. This cannot be switched off again.
  void setWantsStateChangedNotifications() { wantsStateChangedNotifications_ = true; }
  /// `onBegin` then tries to connect once. Retries happen only after a connection was lost.
  void disableConnectTimer() { disableConnectTimer_ = true; }

  /// Connects. If the daemon can be reached, the connection is made and observers have been told before this
  /// returns. When an observer ends the link while it is being told, no poll is started.
  void onBegin();
  /// Disconnects. The last state stays readable.
  void onEnd();
  bool connected() const;
  bool daemonReady() const { return connected(); }
  /// The proxy while connected, else absent.
  std::shared_ptr<KeldaneProxy> proxy() const;
  /// Asks the daemon for its state now. The last state stays when the link fails meanwhile.
  void updateDaemonState();

  /// The last state; absent before the first update.
  const PropertyList& daemonState() const { return daemonState_; }

  // These values come from the last state. Counts are in files, sizes in bytes.
  std::uint32_t backedUpFileCount() const { return state("backedUpFileCount").unsignedIntValue(); }
  bool backedUpFileCountAvailable() const { return !state("backedUpFileCount").isAbsent(); }
  std::uint64_t backedupFileSize() const { return state("backedupFileSize").unsignedLongLongValue(); }
  bool backedupFileSizeAvailable() const { return !state("backedupFileSize").isAbsent(); }
  std::int32_t backupState() const { return signedState("backupState"); }
  PropertyList currentBackupFile() const { return state("currentBackupFile"); }
  PropertyList currentRestoreFile() const { return state("currentRestoreFile"); }
  std::uint32_t currentRestoreJob() const { return state("currentRestoreJob").unsignedIntValue(); }
  bool isBackupNeeded() const { return state("isBackupNeeded").boolValue(); }
  bool lowerPriorityMode() const { return state("lowerPriorityMode").boolValue(); }
  bool paused() const { return state("paused").boolValue(); }
  std::uint32_t pendingFileCount() const { return state("pendingFileCount").unsignedIntValue(); }
  bool pendingFileCountAvailable() const { return !state("pendingFileCount").isAbsent(); }
  std::uint64_t pendingFileSize() const { return state("pendingFileSize").unsignedLongLongValue(); }
  bool pendingFileSizeAvailable() const { return !state("pendingFileSize").isAbsent(); }
  bool recoverMode() const { return state("recoverMode").boolValue(); }
  std::int32_t serviceState() const { return signedState("serviceState"); }
  PropertyList statusString() const { return state("statusString"); }
  bool isOverQuota() const { return state("isOverQuota").boolValue(); }
  std::uint32_t quotaMB() const { return state("quotaMB").unsignedIntValue(); }
  /// Whole gigabytes; the rest is dropped.
  std::uint32_t quotaGB() const { return quotaMB() >> 10; }
  std::uint32_t getBackupControl() const { return state("backupControlFlags").unsignedIntValue(); }
  /// The value is remembered for when the daemon is away.
  bool isQuotaLimited() const;

  // These values come from the daemon and are remembered for when it is away. They are never absent: without
  // a remembered value they are "" or 0. A link that fails during the call does not overwrite the remembered
  // value.
  PropertyList serverURL() const { return proxyOrCacheString("serverURL", LAST_SERVER_URL_STRING); }
  PropertyList userEmail() const { return proxyOrCacheString("userEmail", LAST_ACCT_EMAIL_STRING); }
  PropertyList skinId() const {
    return proxyOrCacheStringWithArg("stringValueForProfileKey:", "SkinId", LAST_SKIN_ID_STRING);
  }
  PropertyList computerNumber() const { return proxyOrCacheInt("computerNumber", LAST_COMPUTER_NUM_INT); }

  // These calls are forwarded to the daemon.
  void setLowerPriorityMode(bool on) const;
  bool automaticMode() const;
  void setAutomaticMode(bool on) const;
  std::uint32_t pausedMinutes() const;
  /// The daemon's parameter is unsigned; the bits are passed unchanged.
  void setPausedMinutes(std::int32_t minutes) const;
  void setRecoverMode(bool on) const;
  PropertyList marketingMessage() const;
  void setAccountOverQuotaTestingFlag(bool on) const;
  void clearAccountOverQuotaTestingFlag() const;
  PropertyList dictionaryForPath(const PropertyList& path) const;
  PropertyList dictionaryForPath(const PropertyList& path, bool withDirSizes) const;
  PropertyList childrenDictionariesForPath(const PropertyList& path) const;
  PropertyList stringValueForProfileKey(const PropertyList& key) const;
  void setValueForProfileKey(const PropertyList& key, const PropertyList& withString) const;
  void terminateDaemon() const;
  void addFileToBackup(const PropertyList& path) const;
  void removeFileFromBackup(const PropertyList& path) const;
  void setPriorityBackup(const PropertyList& path) const;
  void setFileTypeToggle(const PropertyList& type, std::uint32_t toggle) const;
  std::uint32_t getFileTypeToggle(const PropertyList& type) const;
  void setAlertHandler() const;
  void endAlertHandler() const;
  void setStateHandler() const;
  void endStateHandler() const;

  // The daemon's method table lacks the selectors of these calls, on purpose. While connected, each of them
  // throws InvalidArgument, and nothing reaches the daemon.
  std::uint32_t intValueForProfileKey(const PropertyList& key) const;
  /// Writes a line to the system log first, whether or not the diagnostic log is on.
  void setValueForProfileKey(const PropertyList& key, std::uint32_t withUnsigned) const;
  void setBackupControl(std::uint32_t flags, std::uint32_t turnOff = 0) const;

 private:
  friend class BackupStatePrivateMethods;  // tests
  void daemonConnectionChangedNotification();
  void onStatusTimer() { updateDaemonState(); }
  void stopStatusTimer();
  PropertyList state(std::string_view key) const { return daemonState_[key]; }
  std::int32_t signedState(std::string_view key) const {
    return static_cast<std::int32_t>(state(key).unsignedIntValue());
  }
  std::optional<PropertyList> performSelector(std::string_view method, const PropertyList& argument) const;
  PropertyList proxyOrCacheString(std::string_view method, const char* forItem) const {
    return proxyOrCacheStringWithArg(method, {}, forItem);
  }
  PropertyList proxyOrCacheStringWithArg(std::string_view method, const PropertyList& arg,
                                         const char* forItem) const;
  PropertyList proxyOrCacheInt(std::string_view method, const char* forItem) const;

  std::shared_ptr<ConnectionController> connection_;
  PropertyList daemonState_;
  std::shared_ptr<Bundle> bundle_;
  std::shared_ptr<Timer> statusTimer_;
  std::weak_ptr<InvocationTarget> proxyDelegate_;
  bool wantsStateChangedNotifications_ = false;
  bool disableConnectTimer_ = false;
};

}  // namespace keldane
