#include "KeldaneCMM/Source/KeldaneCMM.h"

#include <cstring>

#include "KeldaneCMM/Source/Entry.h"
#include "log/KeldaneLog.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/notifications/NotificationCenter.h"
#include "platform/objects/Absent.h"
#include "platform/objects/Exceptions.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

// The line that the assertion of `addBackupFlag` shows.
constexpr int kNoFlagsLine = 111;

constexpr OSType kBlankTypeCode = fourCharCode("    ");
constexpr OSType kUnknownTypeCode = fourCharCode("\?\?\?\?");

bool has(std::uint32_t flags, std::uint32_t bits) { return (flags & bits) == bits; }

// The code's bytes in memory order. This reverses the characters, so 'TEXT' gives "TXET". It is kept on
// purpose, because the daemon's rules know the types by these names.
std::string typeCodeText(OSType code) {
  char bytes[sizeof(code) + 1] = {};
  std::memcpy(bytes, &code, sizeof(code));
  return isValidUtf8(bytes) ? bytes : "";
}

}  // namespace

std::shared_ptr<Bundle> KeldaneCMM::bundle() {
  static constexpr char anchor = 0;  // an address inside this module
  return Bundle::bundleForClass(&anchor);
}

std::shared_ptr<KeldaneCMM> KeldaneCMM::init() {
  const std::shared_ptr<KeldaneCMM> module(new KeldaneCMM);
  BackupState& state = *module->backupState_;
  state.setBundle(bundle());
  state.setProxyDelegate(module);
  state.disableConnectTimer();
  NotificationCenter::defaultCenter().addObserver(
      module.get(), KeldaneBackupStateConnectionChangedNotification, &state,
      [observer = module.get()](const Notification&) { observer->readyChangedNotification(); });
  state.onBegin();
  return module;
}

// An observer may throw, but a destructor may not.
KeldaneCMM::~KeldaneCMM() {
  NotificationCenter::defaultCenter().removeObserver(this, KeldaneBackupStateConnectionChangedNotification,
                                                     backupState_.get());
  guardedEntry<bool>("KeldaneCMM", false, [this] {
    backupState_->onEnd();
    return true;
  });
}

void KeldaneCMM::readyChangedNotification() const {
  KeldaneCLog(backupState_->connected() ? "KeldaneCMM connected" : "KeldaneCMM disconnected");
}

KeldaneFileNode::Pointer KeldaneCMM::nodeForPath(const std::string& path) const {
  return KeldaneFileNode::fileNodeForPath(path, backupState_->proxy().get());
}

bool KeldaneCMM::isPathExcludedFromBackup(const std::string& path) const {
  const KeldaneFileNode::Pointer node = nodeForPath(path);
  return node && !has(node->simpleFlags(), simple_flags::kEnabled);
}

void KeldaneCMM::addBackupFlag(std::uint32_t* flags, const std::string& forPath) const {
  if (flags == nullptr) {
    throw AssertionFailure("-[KeldaneCMM addBackupFlag:forPath:]", "KeldaneCMM/Source/KeldaneCMM",
                           kNoFlagsLine, "flags");
  }
  const KeldaneFileNode::Pointer node = nodeForPath(forPath);
  if (!node) {
    return;
  }
  const std::uint32_t simple = node->simpleFlags();
  const bool both =
      node->isDirectory() || (has(simple, simple_flags::kGrayed) && !has(simple, simple_flags::kChecked));
  if (!node->isDirectory() && !has(simple, simple_flags::kEnabled)) {
    return;
  }
  if (both) {
    *flags |= kOfferBackup | kOfferExclude;
  } else {
    *flags |= has(simple, simple_flags::kChecked) ? kOfferExclude : kOfferBackup;
  }
}

bool KeldaneCMM::isPathInBackup(const std::string& path) const {
  const std::uint32_t flags = sendTo(nodeForPath(path), &KeldaneFileNode::backupFlags);
  return (flags & (backup_flags::kInclude | backup_flags::kFolderInclude)) != 0 &&
         !has(flags, backup_flags::kExclude) && !has(flags, backup_flags::kNoFolder);
}

PropertyList KeldaneCMM::stateForPath(const std::string& path) const {
  return sendTo(nodeForPath(path), &KeldaneFileNode::state);
}

bool KeldaneCMM::addPathToBackup(const std::string& path) const {
  backupState_->addFileToBackup(path);
  return false;
}

bool KeldaneCMM::removePathFromBackup(const std::string& path) const {
  backupState_->removeFileFromBackup(path);
  return false;
}

bool KeldaneCMM::backupASAP(const std::string& path) const {
  backupState_->addFileToBackup(path);
  backupState_->setPriorityBackup(path);
  return false;
}

std::string KeldaneCMM::fileTypeForPath(const std::string& path) const {
  std::string type = pathExtension(path);
  if (type.empty()) {
    const std::optional<FileAttributes> attributes = FileManager::fileAttributesAtPath(path, false);
    const OSType code = attributes ? attributes->hfsTypeCode : 0;
    if (code != 0 && code != kBlankTypeCode && code != kUnknownTypeCode) {
      type = typeCodeText(code);
    }
  }
  return type.starts_with('.') ? type : "." + type;
}

bool KeldaneCMM::setTypeToggle(const std::string& path, std::uint32_t toggle) const {
  backupState_->setFileTypeToggle(fileTypeForPath(path), toggle);
  return true;
}

bool KeldaneCMM::backupFileType(const std::string& path) const { return setTypeToggle(path, kTypeBackup); }

bool KeldaneCMM::excludeFileType(const std::string& path) const { return setTypeToggle(path, kTypeExclude); }

std::int32_t KeldaneCMM::getTypeToggleForPath(const std::string& path) const {
  return static_cast<std::int32_t>(backupState_->getFileTypeToggle(fileTypeForPath(path)));
}

bool KeldaneCMM::getSetPriorityForPath(const std::string& path) const {
  const std::uint32_t flags = sendTo(nodeForPath(path), &KeldaneFileNode::simpleFlags);
  return has(flags, simple_flags::kPriorityEnabled | simple_flags::kPriorityVisible) &&
         !has(flags, simple_flags::kPriorityChecked);
}

const MethodSignature* KeldaneCMM::methodSignatureForSelector(std::string_view /*selector*/) const {
  return nullptr;
}

void KeldaneCMM::invoke(Invocation& /*invocation*/) {}

}  // namespace keldane
