#include "platform/events/PathDescriptors.h"

#include <algorithm>

#include "platform/events/FileReference.h"
#include "platform/text/HexDigit.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr std::string_view kVolumeName = "Linux";
constexpr std::string_view kScheme = "file://";
constexpr std::size_t kReferenceHeader = 12;
constexpr std::uint32_t kReferenceVersion = 1;

bool isUsablePath(std::string_view path) {
  return path.starts_with('/') && path.find('\0') == std::string_view::npos && isValidUtf8(path);
}

std::string withoutTrailingSlashes(std::string_view path) {
  const std::size_t end = path.find_last_not_of('/');
  return end == std::string_view::npos ? "/" : std::string(path.substr(0, end + 1));
}

/// A name in one kind of path may contain the separator of the other kind, so the two are exchanged.
char exchanged(char c) { return c == ':' ? '/' : c == '/' ? ':' : c; }

std::string_view magicOf(DescType type) {
  return type == typeAlias ? "KALS" : type == typeFSRef ? "KFSR" : "";
}

std::string littleEndian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>(value >> shift);
  }
  return bytes;
}

OSErr createReference(DescType type, std::string_view path, AEDesc* result) {
  const std::string record = fileReferenceTo(type, path);
  return AECreateDesc(type, record.data(), record.size(), result);
}

std::optional<std::string> unescaped(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (;;) {
    const std::string_view plain = text.substr(0, text.find('%'));
    bytes += plain;
    text.remove_prefix(plain.size());
    if (text.empty()) {
      return bytes;
    }
    const int high = text.size() > 2 ? hexDigit(text[1]) : -1;
    const int low = text.size() > 2 ? hexDigit(text[2]) : -1;
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes += static_cast<char>(high << 4 | low);
    text.remove_prefix(3);
  }
}

}  // namespace

std::string fileReferenceTo(DescType type, std::string_view path) {
  std::string record(magicOf(type));
  record += littleEndian(kReferenceVersion);
  record += littleEndian(static_cast<std::uint32_t>(path.size()));
  record += path;
  return record;
}

std::optional<std::string_view> pathInFileReference(DescType type, std::string_view bytes) {
  const std::string_view magic = magicOf(type);
  if (magic.empty() || bytes.size() < kReferenceHeader || !bytes.starts_with(magic) ||
      bytes.substr(4, 4) != littleEndian(kReferenceVersion) ||
      bytes.substr(8, 4) != littleEndian(static_cast<std::uint32_t>(bytes.size() - kReferenceHeader))) {
    return std::nullopt;
  }
  return bytes.substr(kReferenceHeader);
}

OSErr createFileURLDescriptor(std::string_view path, AEDesc* result) {
  // The path is escaped byte by byte, so that a host can hand over names that are not UTF-8. The coercion
  // refuses those.
  const std::string url = FileURL::escaped(path);
  return AECreateDesc(typeFileURL, url.data(), url.size(), result);
}

OSErr createAliasDescriptor(std::string_view path, AEDesc* result) {
  return createReference(typeAlias, path, result);
}

OSErr createFileReferenceDescriptor(std::string_view path, AEDesc* result) {
  return createReference(typeFSRef, path, result);
}

std::optional<std::string> stringValue(const AEDesc& desc) {
  std::string text(AEGetDescDataSize(&desc), '\0');
  AEGetDescData(&desc, text.data(), text.size());
  if (desc.descriptorType == typeUTF8Text || desc.descriptorType == typeChar) {
    return text;
  }
  if (desc.descriptorType != typeFileURL) {
    return std::nullopt;
  }
  const std::optional<FileURL> url = FileURL::withString(text);
  return url ? hfsPathFromPOSIXPath(url->path()) : std::nullopt;
}

std::optional<std::string> hfsPathFromPOSIXPath(std::string_view path) {
  if (!isUsablePath(path)) {
    return std::nullopt;
  }
  std::string hfs(kVolumeName);
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start) {
      hfs += ':';
      std::transform(path.begin() + static_cast<std::ptrdiff_t>(start),
                     path.begin() + static_cast<std::ptrdiff_t>(end), std::back_inserter(hfs), exchanged);
    }
    start = end + 1;
  }
  return hfs.size() == kVolumeName.size() ? hfs + ':' : hfs;
}

std::optional<std::string> posixPathFromHFSPath(std::string_view path) {
  // This desktop has one volume, so the first component stands for it, whatever its name is.
  const std::size_t volumeEnd = std::min(path.find(':'), path.size());
  if (volumeEnd == 0 || path.find('\0') != std::string_view::npos || !isValidUtf8(path)) {
    return std::nullopt;
  }
  std::string posix;
  for (std::size_t start = volumeEnd + 1; start < path.size();) {
    const std::size_t end = std::min(path.find(':', start), path.size());
    if (end > start) {
      posix += '/';
      std::transform(path.begin() + static_cast<std::ptrdiff_t>(start),
                     path.begin() + static_cast<std::ptrdiff_t>(end), std::back_inserter(posix), exchanged);
    }
    start = end + 1;
  }
  return posix.empty() ? "/" : posix;
}

std::optional<FileURL> FileURL::withFileSystemPath(std::string_view path, PathStyle style, bool isDirectory) {
  const std::optional<std::string> posix =
      style == PathStyle::hfs ? posixPathFromHFSPath(path) : std::optional<std::string>(path);
  if (!posix || !isUsablePath(*posix)) {
    return std::nullopt;
  }
  return FileURL(withoutTrailingSlashes(*posix), isDirectory);
}

std::optional<FileURL> FileURL::withString(std::string_view text) {
  const auto sameLetter = [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a + 32) : a) == b;
  };
  if (text.size() < kScheme.size() || !std::equal(kScheme.begin(), kScheme.end(), text.begin(),
                                                  [&](char b, char a) { return sameLetter(a, b); })) {
    return std::nullopt;
  }
  text.remove_prefix(kScheme.size());
  if (text.starts_with("localhost/")) {
    text.remove_prefix(std::string_view("localhost").size());
  }
  if (text.find('?') != std::string_view::npos || text.find('#') != std::string_view::npos) {
    return std::nullopt;
  }
  const std::optional<std::string> path = unescaped(text);
  if (!path || !isUsablePath(*path)) {
    return std::nullopt;
  }
  return FileURL(withoutTrailingSlashes(*path), path->ends_with('/'));
}

std::string FileURL::string() const { return escaped(path_) + (isDirectory_ && path_ != "/" ? "/" : ""); }

std::string FileURL::escaped(std::string_view path) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  static constexpr std::string_view kPlain = "-._~/";
  std::string url(kScheme);
  for (const char c : path) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       kPlain.find(c) != std::string_view::npos;
    if (plain) {
      url += c;
    } else {
      url += '%';
      url += kDigits[static_cast<std::uint8_t>(c) >> 4];
      url += kDigits[static_cast<std::uint8_t>(c) & 0x0F];
    }
  }
  return url;
}

}  // namespace keldane
