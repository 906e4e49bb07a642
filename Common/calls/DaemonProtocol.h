// The daemon's remote interface. The typed calls of both ends are made from one table.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "Common/calls/Invocation.h"

namespace keldane {

/// The rules for a file type that `setFileTypeToggle:toggle:` sets and `getFileTypeToggle:` returns. No other
/// number is a rule.
inline constexpr std::uint32_t kTypeNone = 0;
inline constexpr std::uint32_t kTypeBackup = 6;
inline constexpr std::uint32_t kTypeExclude = 7;

}  // namespace keldane

// METHOD(selector, operation, return code, argument codes…). The selectors, the order of the arguments and
// the codes are part of the wire protocol. The selectors setBackupControl:turnOff:, intValueForProfileKey:
// and setValueForProfileKey:withUnsigned: are missing on purpose: the facade calls them, but no row describes
// them, so the calls never reach the daemon.
// clang-format off
#define KELDANE_DAEMON_METHODS(METHOD) \
  METHOD("setEnabled:",                          setEnabled,                       'v', 'c')                \
  METHOD("pausedMinutes",                        pausedMinutes,                    'I')                     \
  METHOD("setPausedMinutes:",                    setPausedMinutes,                 'v', 'I')                \
  METHOD("setIncludeRequired:",                  setIncludeRequired,               'v', 'c')                \
  METHOD("recoverMode",                          recoverMode,                      'c')                     \
  METHOD("setRecoverMode:",                      setRecoverMode,                   'v', 'c')                \
  METHOD("lowerPriorityMode",                    lowerPriorityMode,                'c')                     \
  METHOD("setLowerPriorityMode:",                setLowerPriorityMode,             'v', 'c')                \
  METHOD("delayShutdown",                        delayShutdown,                    'c')                     \
  METHOD("setDelayShutdown:",                    setDelayShutdown,                 'v', 'c')                \
  METHOD("automaticMode",                        automaticMode,                    'c')                     \
  METHOD("setAutomaticMode:",                    setAutomaticMode,                 'v', 'c')                \
  METHOD("serverURL",                            serverURL,                        '@')                     \
  METHOD("daemonState",                          daemonState,                      '@')                     \
  METHOD("serviceState",                         serviceState,                     'I')                     \
  METHOD("setServiceState:",                     setServiceState,                  'v', 'I')                \
  METHOD("dictionaryForPath:",                   dictionaryForPath,                '@', '@')                \
  METHOD("dictionaryForPath:withDirSizes:",      dictionaryForPath,                '@', '@', 'c')           \
  METHOD("childrenDictionariesForPath:",         childrenDictionariesForPath,      '@', '@')                \
  METHOD("excludeFileFromBackup:",               excludeFileFromBackup,            'I', '@')                \
  METHOD("unexcludeFileFromBackup:",             unexcludeFileFromBackup,          'I', '@')                \
  METHOD("policyExcludeList",                    policyExcludeList,                '@')                     \
  METHOD("excludedFiles:",                       excludedFiles,                    '@', '@')                \
  METHOD("setFileTypeToggle:toggle:",            setFileTypeToggle,                'v', '@', 'I')           \
  METHOD("getFileTypeToggle:",                   getFileTypeToggle,                'I', '@')                \
  METHOD("addFileToBackup:",                     addFileToBackup,                  'v', '@')                \
  METHOD("addFilesToBackup:",                    addFilesToBackup,                 'v', '@')                \
  METHOD("removeFileFromBackup:",                removeFileFromBackup,             'v', '@')                \
  METHOD("setPriorityBackup:",                   setPriorityBackup,                'v', '@')                \
  METHOD("setBackupControl:",                    setBackupControl,                 'v', 'I')                \
  METHOD("restoreFile:toPath:version:priority:", restoreFile,                      'I', '@', '@', 'I', 'I') \
  METHOD("getCurrentRestoreJob",                 getCurrentRestoreJob,             'I')                     \
  METHOD("getRestoreJobStatus:",                 getRestoreJobStatus,              'I', 'I')                \
  METHOD("cancelAllRestoreJobs",                 cancelAllRestoreJobs,             'v')                     \
  METHOD("setAccountOverQuotaTestingFlag:",      setAccountOverQuotaTestingFlag,   'v', 'c')                \
  METHOD("clearAccountOverQuotaTestingFlag",     clearAccountOverQuotaTestingFlag, 'v')                     \
  METHOD("setAlertHandler",                      setAlertHandler,                  'v')                     \
  METHOD("endAlertHandler",                      endAlertHandler,                  'v')                     \
  METHOD("setStateHandler",                      setStateHandler,                  'v')                     \
  METHOD("endStateHandler",                      endStateHandler,                  'v')                     \
  METHOD("longForState:",                        longForState,                     'q', 'I')                \
  METHOD("longlongForState:",                    longlongForState,                 'Q', 'I')                \
  METHOD("stringForState:",                      stringForState,                   '@', 'I')                \
  METHOD("backupColorsForFiles:",                backupColorsForFiles,             '@', '@')                \
  METHOD("stringValueForProfileKey:",            stringValueForProfileKey,         '@', '@')                \
  METHOD("setValueForProfileKey:withString:",    setValueForProfileKey,            'v', '@', '@')           \
  METHOD("userEmail",                            userEmail,                        '@')                     \
  METHOD("computerNumber",                       computerNumber,                   '@')                     \
  METHOD("marketingMessage",                     marketingMessage,                 '@')                     \
  METHOD("liveStateString",                      liveStateString,                  '@')                     \
  METHOD("backedupStateString",                  backedupStateString,              '@')                     \
  METHOD("mappedUserAsString:",                  mappedUserAsString,               '@', '@')                \
  METHOD("restoreWithChoices:",                  restoreWithChoices,               'c', '@')                \
  METHOD("showRestoreWizard",                    showRestoreWizard,                'v')                     \
  METHOD("terminate",                            terminate,                        'v')
// clang-format on

namespace keldane {

/// A method table that a proxy can be bound to.
struct Protocol {
  std::string_view name;
  std::span<const MethodSignature> methods;
  /// Null when the table lacks the selector.
  const MethodSignature* find(std::string_view selector) const;
  /// Whether any method returns a value, so that a caller may wait for an answer.
  bool hasAnswers() const;
};

/// The protocol of the backup daemon.
extern const Protocol KeldaneDaemonProtocol;

/// The client's end: gives `Caller` a member function for each row of the table, named by the selector's
/// first label and told apart by the number of arguments. `Caller` has `RawValue call(std::string_view
/// selector, Arguments arguments)`.
template <class Caller>
class DaemonCalls {
 public:
#define KELDANE_CALL(selector, operation, returnCode, ...)                                                  \
  template <class... Given>                                                                                 \
  requires Codes<__VA_ARGS__>::template accepts<Given...> RawType<returnCode> operation(Given&&... given) { \
    return Codes<__VA_ARGS__>::template call<returnCode>(static_cast<Caller&>(*this), selector,             \
                                                         std::forward<Given>(given)...);                    \
  }
  KELDANE_DAEMON_METHODS(KELDANE_CALL)
#undef KELDANE_CALL
};

/// The daemon's end: performs an incoming call on the member function of `Service` that the table names. A
/// service that lacks one of the operations does not compile. Returns false for a selector that is not in the
/// table.
template <class Service>
bool performDaemonCall(Service& service, Invocation& invocation) {
#define KELDANE_PERFORM(selector_, operation, returnCode, ...)                                            \
  if (invocation.signature.selector == selector_) {                                                       \
    Codes<__VA_ARGS__>::template perform<returnCode>(                                                     \
        invocation, [&](auto&&... given) -> RawType<returnCode> { return service.operation(given...); }); \
    return true;                                                                                          \
  }
  KELDANE_DAEMON_METHODS(KELDANE_PERFORM)
#undef KELDANE_PERFORM
  return false;
}

}  // namespace keldane
