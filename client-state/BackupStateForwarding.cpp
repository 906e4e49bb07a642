// The operations that BackupState forwards unchanged to the daemon.
#include "client-state/BackupState.h"
#include "platform/objects/Absent.h"
#include "platform/syslog/SystemLog.h"

namespace keldane {

void BackupState::setLowerPriorityMode(bool on) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setLowerPriorityMode(on); });
}

bool BackupState::automaticMode() const {
  return sendTo(proxy(), [](KeldaneProxy& daemon) { return daemon.automaticMode(); }) != 0;
}

void BackupState::setAutomaticMode(bool on) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setAutomaticMode(on); });
}

std::uint32_t BackupState::pausedMinutes() const {
  return sendTo(proxy(), [](KeldaneProxy& daemon) { return daemon.pausedMinutes(); });
}

void BackupState::setPausedMinutes(std::int32_t minutes) const {
  sendTo(proxy(),
         [&](KeldaneProxy& daemon) { daemon.setPausedMinutes(static_cast<std::uint32_t>(minutes)); });
}

void BackupState::setRecoverMode(bool on) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setRecoverMode(on); });
}

PropertyList BackupState::marketingMessage() const {
  return sendTo(proxy(), [](KeldaneProxy& daemon) { return daemon.marketingMessage(); });
}

void BackupState::setAccountOverQuotaTestingFlag(bool on) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setAccountOverQuotaTestingFlag(on); });
}

void BackupState::clearAccountOverQuotaTestingFlag() const {
  sendTo(proxy(), [](KeldaneProxy& daemon) { daemon.clearAccountOverQuotaTestingFlag(); });
}

PropertyList BackupState::dictionaryForPath(const PropertyList& path) const {
  return sendTo(proxy(), [&](KeldaneProxy& daemon) { return daemon.dictionaryForPath(path); });
}

PropertyList BackupState::dictionaryForPath(const PropertyList& path, bool withDirSizes) const {
  return sendTo(proxy(), [&](KeldaneProxy& daemon) { return daemon.dictionaryForPath(path, withDirSizes); });
}

PropertyList BackupState::childrenDictionariesForPath(const PropertyList& path) const {
  return sendTo(proxy(), [&](KeldaneProxy& daemon) { return daemon.childrenDictionariesForPath(path); });
}

PropertyList BackupState::stringValueForProfileKey(const PropertyList& key) const {
  return sendTo(proxy(), [&](KeldaneProxy& daemon) { return daemon.stringValueForProfileKey(key); });
}

void BackupState::setValueForProfileKey(const PropertyList& key, const PropertyList& withString) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setValueForProfileKey(key, withString); });
}

void BackupState::terminateDaemon() const {
  sendTo(proxy(), [](KeldaneProxy& daemon) { daemon.terminate(); });
}

void BackupState::addFileToBackup(const PropertyList& path) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.addFileToBackup(path); });
}

void BackupState::removeFileFromBackup(const PropertyList& path) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.removeFileFromBackup(path); });
}

void BackupState::setPriorityBackup(const PropertyList& path) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setPriorityBackup(path); });
}

void BackupState::setFileTypeToggle(const PropertyList& type, std::uint32_t toggle) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) { daemon.setFileTypeToggle(type, toggle); });
}

std::uint32_t BackupState::getFileTypeToggle(const PropertyList& type) const {
  return sendTo(proxy(), [&](KeldaneProxy& daemon) { return daemon.getFileTypeToggle(type); });
}

void BackupState::setAlertHandler() const {
  sendTo(proxy(), [](KeldaneProxy& daemon) { daemon.setAlertHandler(); });
}

void BackupState::endAlertHandler() const {
  sendTo(proxy(), [](KeldaneProxy& daemon) { daemon.endAlertHandler(); });
}

void BackupState::setStateHandler() const {
  sendTo(proxy(), [](KeldaneProxy& daemon) { daemon.setStateHandler(); });
}

void BackupState::endStateHandler() const {
  sendTo(proxy(), [](KeldaneProxy& daemon) { daemon.endStateHandler(); });
}

std::uint32_t BackupState::intValueForProfileKey(const PropertyList& key) const {
  return sendTo(proxy(), [&](KeldaneProxy& daemon) {
    return daemon.call("intValueForProfileKey:", {RawValue::of<'@'>(key)}).as<'I'>();
  });
}

void BackupState::setValueForProfileKey(const PropertyList& key, std::uint32_t withUnsigned) const {
  systemLog("%s: %@ = %u", "-[BackupState setValueForProfileKey:withUnsigned:]", key, withUnsigned);
  sendTo(proxy(), [&](KeldaneProxy& daemon) {
    daemon.call("setValueForProfileKey:withUnsigned:",
                {RawValue::of<'@'>(key), RawValue::of<'I'>(withUnsigned)});
  });
}

void BackupState::setBackupControl(std::uint32_t flags, std::uint32_t turnOff) const {
  sendTo(proxy(), [&](KeldaneProxy& daemon) {
    daemon.call("setBackupControl:turnOff:", {RawValue::of<'I'>(flags), RawValue::of<'I'>(turnOff)});
  });
}

}  // namespace keldane
