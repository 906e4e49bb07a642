// The contextual-menu module. It asks the daemon about the paths of a menu and sends it the commands.
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

/// The module lives for one menu cycle. The examination makes it and connects it to the daemon if that can be
/// reached. It is released when the menu has closed. While there is no connection, every question yields
/// false, absent or 0, and every command does nothing. Main thread only; it takes no locks. Paths are POSIX
/// paths.
///
/// It is the proxy's delegate but implements no remote method, so the daemon's requests are ignored.
class KeldaneCMM final : public InvocationTarget, public std::enable_shared_from_this<KeldaneCMM> {
 public:
  /// Makes the module and tries to connect before it returns.
  static std::shared_ptr<KeldaneCMM> init();
  ~KeldaneCMM() override;
  KeldaneCMM(const KeldaneCMM&) = delete;
  KeldaneCMM& operator=(const KeldaneCMM&) = delete;

  /// The bundle that this module was loaded from.
  static std::shared_ptr<Bundle> bundle();

  /// The daemon's node for the path; null when the daemon does not know it.
  KeldaneFileNode::Pointer nodeForPath(const std::string& path) const;
  /// Whether the daemon's policy excludes the path from the backup.
  bool isPathExcludedFromBackup(const std::string& path) const;
  /// Adds the offers that fit the path. A null mask throws AssertionFailure.
  void addBackupFlag(std::uint32_t* flags, const std::string& forPath) const;
  bool isPathInBackup(const std::string& path) const;
  /// The daemon's status text.
  PropertyList stateForPath(const std::string& path) const;

  // The results of the commands are constants, on purpose, because no caller uses them.
  bool addPathToBackup(const std::string& path) const;
  bool removePathFromBackup(const std::string& path) const;
  bool backupASAP(const std::string& path) const;
  bool backupFileType(const std::string& path) const;
  bool excludeFileType(const std::string& path) const;

  /// The name of a file's type in the daemon's type rules: "." and its extension, or "." and its type code.
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
