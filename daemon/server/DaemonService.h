// The daemon's end of the remote interface, for one peer.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Common/calls/DaemonProtocol.h"
#include "daemon/Daemon.h"
#include "daemon/server/Permissions.h"
#include "daemon/server/socket/ServerLimits.h"

namespace keldane {

/// Answers every method of the table for one peer, whose rights decide what it may learn and change. Methods
/// that walk through folders or long lists wait for a turn of the user's share. All arguments are checked
/// here: after a value of the wrong kind, a path that is not absolute, or a request without the right to it,
/// the answer is absent or 0 and nothing is done. Called on the peer's receive thread.
class DaemonService final : public InvocationTarget {
 public:
  /// The subjects that a peer can subscribe to.
  enum class Subject { state, alerts };
  using Subscribe = std::function<void(Subject subject, bool on)>;

  DaemonService(std::shared_ptr<Daemon> daemon, PeerAccess access, std::shared_ptr<UserShare> share,
                Subscribe subscribe)
      : daemon_(std::move(daemon)),
        access_(std::move(access)),
        share_(std::move(share)),
        subscribe_(std::move(subscribe)) {}

  const PeerAccess& access() const { return access_; }

  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override;
  void invoke(Invocation& invocation) override;

  // The operations of the table, named by their selectors' first labels.
  void setEnabled(signed char on) { setMode("enabled", on); }
  std::uint32_t pausedMinutes() { return daemon_->pausedMinutes(); }
  void setPausedMinutes(std::uint32_t minutes);
  void setIncludeRequired(signed char on) { setMode("includeRequired", on); }
  signed char recoverMode() { return mode("recoverMode"); }
  void setRecoverMode(signed char on) { setMode("recoverMode", on); }
  signed char lowerPriorityMode() { return mode("lowerPriorityMode"); }
  void setLowerPriorityMode(signed char on) { setMode("lowerPriorityMode", on); }
  signed char delayShutdown() { return mode("delayShutdown"); }
  void setDelayShutdown(signed char on) { setMode("delayShutdown", on); }
  signed char automaticMode() { return mode("automaticMode"); }
  void setAutomaticMode(signed char on) { setMode("automaticMode", on); }
  PropertyList serverURL() { return profileText("ServerURL"); }
  PropertyList daemonState() { return state(); }
  std::uint32_t serviceState() { return state()["serviceState"].unsignedIntValue(); }
  void setServiceState(std::uint32_t state) { setNumber("serviceState", state); }
  PropertyList dictionaryForPath(const PropertyList& path);
  PropertyList dictionaryForPath(const PropertyList& path, signed char withDirSizes);
  PropertyList childrenDictionariesForPath(const PropertyList& path);
  std::uint32_t excludeFileFromBackup(const PropertyList& path) { return changeRule(path, false); }
  std::uint32_t unexcludeFileFromBackup(const PropertyList& path) { return changeRule(path, std::nullopt); }
  PropertyList policyExcludeList();
  PropertyList excludedFiles(const PropertyList& path);
  void setFileTypeToggle(const PropertyList& type, std::uint32_t toggle);
  std::uint32_t getFileTypeToggle(const PropertyList& type);
  void addFileToBackup(const PropertyList& path) { changeRule(path, true); }
  void addFilesToBackup(const PropertyList& paths);
  void removeFileFromBackup(const PropertyList& path) { changeRule(path, false); }
  void setPriorityBackup(const PropertyList& path);
  void setBackupControl(std::uint32_t flags) { setNumber("backupControl", flags); }
  std::uint32_t restoreFile(const PropertyList& path, const PropertyList& toPath, std::uint32_t version,
                            std::uint32_t priority);
  std::uint32_t getCurrentRestoreJob() { return daemon_->restores().current(); }
  std::uint32_t getRestoreJobStatus(std::uint32_t job);
  void cancelAllRestoreJobs();
  void setAccountOverQuotaTestingFlag(signed char on) { setMode("overQuotaTest", on); }
  void clearAccountOverQuotaTestingFlag() { setMode("overQuotaTest", 0); }
  void setAlertHandler() { subscribe_(Subject::alerts, true); }
  void endAlertHandler() { subscribe_(Subject::alerts, false); }
  void setStateHandler() { subscribe_(Subject::state, true); }
  void endStateHandler() { subscribe_(Subject::state, false); }
  std::int64_t longForState(std::uint32_t index) { return stateValue(index).longLongValue(); }
  std::uint64_t longlongForState(std::uint32_t index) { return stateValue(index).unsignedLongLongValue(); }
  PropertyList stringForState(std::uint32_t index);
  PropertyList backupColorsForFiles(const PropertyList& paths);
  PropertyList stringValueForProfileKey(const PropertyList& key);
  void setValueForProfileKey(const PropertyList& key, const PropertyList& withString);
  PropertyList userEmail() { return profileText("UserEmail"); }
  PropertyList computerNumber();
  PropertyList marketingMessage() { return profileText("MarketingMessage"); }
  PropertyList liveStateString() { return state()["statusString"]; }
  PropertyList backedupStateString();
  PropertyList mappedUserAsString(const PropertyList& user);
  signed char restoreWithChoices(const PropertyList& choices);
  void showRestoreWizard();
  void terminate();

 private:
  static std::optional<std::string> pathFrom(const PropertyList& value);
  bool isShortList(const PropertyList& paths) const;
  WalkTurns::Turn turn() { return {*share_->turns, share_->line}; }
  PropertyList state() { return daemon_->state(access_); }
  bool mayChangeSettings(const char* what) const;
  std::uint32_t addRestore(RestoreRequest request);
  std::uint32_t changeRule(const PropertyList& path, std::optional<bool> included);
  signed char mode(const char* key) { return daemon_->setting(key) != 0 ? 1 : 0; }
  void setMode(const char* key, signed char on) { setNumber(key, on != 0 ? 1 : 0); }
  void setNumber(const char* key, std::uint32_t value);
  PropertyList profileText(const char* key);
  PropertyList stateValue(std::uint32_t index) { return state().entry(index).second; }

  const std::shared_ptr<Daemon> daemon_;  // a request that is being performed may outlive the server
  const PeerAccess access_;
  const std::shared_ptr<UserShare> share_;
  const Subscribe subscribe_;
};

}  // namespace keldane
