// Facts about the process that hosts a plug-in. The host declares them, the plug-in asks for them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/host/FourCharCode.h"

namespace keldane {

/// The host's side: a host declares what it is before it loads a plug-in. These are the values until then:
/// the signature is '????' and the type '????', so it is not the Finder; there is no error; there are no
/// contextual-menu attributes; there is an application object; the process's first thread is the main thread;
/// the opener is `xdg-open`. Process-wide; any thread.
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

/// The application object inside the host. There is one or none; it has no operations that a plug-in needs.
class Application {
 public:
  /// Null where the host has none to offer.
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
  char* processName;                ///< null: not asked for
  void* processAppSpec;             ///< null: not asked for
  std::uint32_t processType;
  OSType processSignature;
};

/// Fills type and signature. -50 for a null pointer or a length that is not the record's, -600 (no such
/// process) for any process but the current one, otherwise the host's error.
OSStatus GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info);

inline constexpr OSType gestaltContextualMenuAttr = keldane::fourCharCode("cmnu");
inline constexpr std::int32_t gestaltContextualMenuHasAttributeAndModifierKeys = 4;

/// The value of a selector, of which only 'cmnu' is known; -5551 (no such selector) for any other.
OSStatus Gestalt(OSType selector, std::int32_t* response);
}
