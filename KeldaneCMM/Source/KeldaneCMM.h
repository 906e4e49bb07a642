// The contextual-menu module: asks the daemon about the paths of a menu and sends it the commands.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Common/calls/Invocation.h"
#include "Common/nodes/FileNode.h"
#include "client-state/BackupState.h"

namespace keldane {

/// The offer mask that a menu gathers over its selection. Bits are only ever added.
inline constexpr std::uint32_t kOfferBackup = 1;
inline constexpr std::uint32_t kOfferExclude = 2;

/// Lives for one menu cycle: made by the examination, with the daemon connected if it can be reached, and
/// released when the menu has closed. While there is no connection every question answers no, absent or 0 and
/// every command does nothing. Main thread; takes no locks. Paths are POSIX paths.
///
/// It is the proxy's delegate but implements no remote method: what the daemon sends is ignored.
class KeldaneCMM final : public InvocationTarget, public std::enable_shared_from_this<KeldaneCMM> {
 public:
  /// Connects before it returns.
  static std::shared_ptr<KeldaneCMM> init();
  ~KeldaneCMM() override;
  KeldaneCMM(const KeldaneCMM&) = delete;
  KeldaneCMM& operator=(const KeldaneCMM&) = delete;

  /// The bundle that this module was loaded from.
  static std::shared_ptr<Bundle> bundle();

  /// What the daemon knows of the path; absent when it knows nothing.
  KeldaneFileNode::Pointer nodeForPath(const std::string& path) const;
  /// Whether the daemon's policy bars the path from the backup.
  bool isPathExcludedFromBackup(const std::string& path) const;
  /// Adds the offers that fit the path. A null mask throws AssertionFailure.
  void addBackupFlag(std::uint32_t* flags, const std::string& forPath) const;
  bool isPathInBackup(const std::string& path) const;
  /// The daemon's status text.
  PropertyList stateForPath(const std::string& path) const;

  // The results of the commands are fixed, on purpose: nobody looks at them.
  bool addPathToBackup(const std::string& path) const;
  bool removePathFromBackup(const std::string& path) const;
  bool backupASAP(const std::string& path) const;
  bool backupFileType(const std::string& path) const;
  bool excludeFileType(const std::string& path) const;

  /// The name under which the daemon's type rules know a file's type: "." and its extension, or its type
  /// code.
  std::string fileTypeForPath(const std::string& path) const;
  std::int32_t getTypeToggleForPath(const std::string& path) const;
  /// Whether the file may be given priority and has not been given it yet.
  bool getSetPriorityForPath(const std::string& path) const;

  const MethodSignature* methodSignatureForSelector(std::string_view selector) const override;
  void invoke(Invocation& invocation) override;

 private:
  KeldaneCMM() = default;
  void readyChangedNotification() const;
  bool setTypeToggle(const std::string& path, std::uint32_t toggle) const;

  std::unique_ptr<BackupState> backupState_ = std::make_unique<BackupState>();
};

}  // namespace keldane
