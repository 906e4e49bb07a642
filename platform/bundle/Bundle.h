// A folder with code, an information dictionary and localised text.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/plist/PropertyList.h"
#include "platform/threads/Mutex.h"

namespace keldane {

/// A bundle on disk:
///
///     Keldane.plugin/Contents/Info.plist                                  in any property-list format
///     Keldane.plugin/Contents/Linux/KeldaneCMM.so                         the module ("CFBundleExecutable")
///     Keldane.plugin/Contents/Resources/<language>.lproj/<table>.strings  UTF-8 or UTF-16
///
/// A process has one object for each path, which keeps what it has read. A file that is missing or broken
/// reads as empty. A file that is there but cannot be read is logged. When the reason is a lack of
/// descriptors or memory, it is read again the next time. Any thread may use it.
class Bundle {
 public:
  /// The bundle of the process: the one that the host declared, or else the folder of the executable. Its
  /// Info.plist may lie beside the executable or under Contents.
  static std::shared_ptr<Bundle> mainBundle();
  static void setMainBundle(std::shared_ptr<Bundle> bundle);
  /// Null when there is no folder at the path.
  static std::shared_ptr<Bundle> bundleWithPath(const std::filesystem::path& path);
  /// The bundle whose module contains this address, which is that of a function or static object of the
  /// class. For code that is in no bundle it is the main bundle.
  static std::shared_ptr<Bundle> bundleForClass(const void* addressInClass);

  const std::filesystem::path& bundlePath() const { return path_; }
  /// Path of the module that "CFBundleExecutable" names.
  std::filesystem::path executablePath() const;
  /// The information dictionary of the file, unchanged.
  PropertyList infoDictionary() const;
  /// A value of the dictionary. Variables of the environment in a text, such as "${XDG_RUNTIME_DIR}", are
  /// expanded, so that one installed bundle serves every user; absent when one is missing (see
  /// `withVariables`).
  PropertyList objectForInfoDictionaryKey(std::string_view key) const;
  /// The text for `key` in the user's language (LC_ALL, LC_MESSAGES, LANG, then English), from the table of
  /// that name ("Localizable" when the name is empty). When no table has the key, the result is `value`, or
  /// `key` when `value` is empty.
  std::string localizedStringForKey(std::string_view key, std::string_view value,
                                    std::string_view table = {}) const;

 private:
  explicit Bundle(std::filesystem::path path) : path_(std::move(path)) {}
  PropertyList table(const std::string& name) const;

  std::filesystem::path path_;
  mutable Mutex mutex_{{.name = "Bundle"}};
  mutable bool infoRead_ KELDANE_GUARDED_BY(mutex_) = false;
  mutable PropertyList info_ KELDANE_GUARDED_BY(mutex_);
  mutable std::unordered_map<std::string, PropertyList> tables_ KELDANE_GUARDED_BY(mutex_);
};

}  // namespace keldane
