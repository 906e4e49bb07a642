// Facts about the process that hosts a plug-in. The host declares them, and the plug-in asks for them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/host/FourCharCode.h"

namespace keldane {

/// The host's side. A host sets these facts before it loads a plug-in. The defaults are: the signature and
/// the type are '????', so the host is not the Finder. There is no error, there are no contextual-menu
/// attributes, and there is an application object. The process's first thread is the main thread, and the
/// opener is `xdg-open`. The facts belong to the whole process, and any thread may use them.
class Host {
 public:
  using FileOpener = std::function<bool(const std::optional<std::string>& path)>;

  static Host& shared();

  /// Sets the signature and type that GetProcessInformation answers from now on.
  void setProcess(OSType signature, OSType type);
  /// A non-zero error makes GetProcessInformation fail with it.
  void setProcessInformationError(OSStatus error);
  /// The bits that Gestalt answers for 'cmnu', and an error for it to fail with.
  void setContextualMenuAttributes(std::int32_t bits);
  void setGestaltError(OSStatus error);
  void setApplicationAvailable(bool available);
  /// Declares the calling thread the main thread. To be called before any plug-in is loaded.
  void declareMainThread();
  bool isMainThread() const;
  /// Sets the function that opens a file for the plug-in instead of `xdg-open`. An empty function restores
  /// the default.
  void setFileOpener(FileOpener opener);

  OSType signature() const;
  OSType type() const;
  OSStatus processInformationError() const;
  std::int32_t contextualMenuAttributes() const;
  OSStatus gestaltError() const;
  bool applicationAvailable() const;
  FileOpener fileOpener() const;

 private:
  Host();
  ~Host();
  struct State;
  std::unique_ptr<State> state_;
};

/// The application object of the host. There is one or none. It has no operations, because plug-ins need
/// none.
class Application {
 public:
  /// Null when the host has no application object.
  static Application* sharedApplication();
};

}  // namespace keldane

extern "C" {

struct ProcessSerialNumber {
  std::uint32_t highLongOfPSN;
  std::uint32_t lowLongOfPSN;
};
inline constexpr std::uint32_t kNoProcess = 0;
inline constexpr std::uint32_t kCurrentProcess = 2;

struct ProcessInfoRec {
  std::uint32_t processInfoLength;  ///< set by the caller: the size of this record in bytes
  char* processName;                ///< null when it is not asked for
  void* processAppSpec;             ///< null when it is not asked for
  std::uint32_t processType;
  OSType processSignature;
};

/// Fills in the type and the signature. The result is -50 for a null pointer or a length that is not the
/// record's, -600 (no such process) for any process but the current one, and otherwise the host's error.
OSStatus GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info);

inline constexpr OSType gestaltContextualMenuAttr = keldane::fourCharCode("cmnu");
inline constexpr std::int32_t gestaltContextualMenuHasAttributeAndModifierKeys = 4;

/// Gives the value of a selector. Only 'cmnu' is known; for any other the result is -5551 (no such selector).
OSStatus Gestalt(OSType selector, std::int32_t* response);
}
