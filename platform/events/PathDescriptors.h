// Conversions from paths to descriptors, for hosts, and back, for plug-ins.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/events/AppleEvents.h"

namespace keldane {

/// Each function makes a descriptor of an absolute POSIX path, which may have any bytes. An alias and a file
/// reference hold the path in a record of this system's own form, with a magic number, the version and the
/// length in front. Only the coercion to 'furl' reads such records. That coercion fails with -1700 unless the
/// path is absolute, UTF-8 and without NUL.
OSErr createFileURLDescriptor(std::string_view path, AEDesc* result);
OSErr createAliasDescriptor(std::string_view path, AEDesc* result);
OSErr createFileReferenceDescriptor(std::string_view path, AEDesc* result);

/// A descriptor as text. For a text descriptor the result is the text. For a file URL it is the HFS path: the
/// volume's name and the components, separated by colons, with ':' and '/' exchanged in each name. Absent for
/// any other descriptor.
std::optional<std::string> stringValue(const AEDesc& desc);

/// The HFS path of an absolute POSIX path, and back. The root volume is called "Linux". Absent when the text
/// is no such path.
std::optional<std::string> hfsPathFromPOSIXPath(std::string_view path);
std::optional<std::string> posixPathFromHFSPath(std::string_view path);

enum class PathStyle { posix = 0, hfs = 1 };

/// A file URL, as percent-encoded text.
class FileURL {
 public:
  static std::optional<FileURL> withFileSystemPath(std::string_view path, PathStyle style, bool isDirectory);
  /// "file:///a%20b" or "file://localhost/a"; absent for any other URL and for broken escapes.
  static std::optional<FileURL> withString(std::string_view text);
  /// The POSIX path, without a trailing slash.
  const std::string& path() const { return path_; }
  std::string string() const;
  /// The URL of a path as text. The path may hold any bytes, not only UTF-8.
  static std::string escaped(std::string_view path);

 private:
  explicit FileURL(std::string path, bool isDirectory) : path_(std::move(path)), isDirectory_(isDirectory) {}
  std::string path_;
  bool isDirectory_;
};

}  // namespace keldane
