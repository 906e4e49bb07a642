// Paths of both kinds, file URLs, and files as descriptors.
#include "platform/events/OwnedDescriptor.h"
#include "platform/events/PathDescriptors.h"

#include <algorithm>

#include "fuzz/Fuzzing.h"
#include "platform/files/Path.h"

using namespace keldane;
using namespace keldane::fuzzing;

namespace {

bool isPath(std::string_view text) {
  return text.starts_with('/') && text.find('\0') == std::string_view::npos && isValidUtf8(text);
}

/// The path without empty components.
std::string plain(std::string_view path) {
  std::string joined;
  for (const std::string& component : pathComponents(path)) {
    require(component == "/" || component.find('/') == std::string::npos, "components hold no slash");
    joined = appendPathComponent(joined, component);
  }
  return joined;
}

void checkPath(std::string_view text) {
  const std::string last = lastPathComponent(text);
  require(last.find('/') == std::string::npos || last == "/", "a name holds no slash");
  require(last.ends_with(pathExtension(text)), "an extension ends the name");
  require(plain(plain(text)) == plain(text), "joined components are plain");

  const std::optional<std::string> hfs = hfsPathFromPOSIXPath(text);
  require(hfs.has_value() == isPath(text), "every path has an HFS path, nothing else has");
  if (hfs) {
    require(posixPathFromHFSPath(*hfs) == plain(text), "an HFS path leads back");
  }
  const std::optional<std::string> posix = posixPathFromHFSPath(text);
  require(!posix || (isPath(*posix) && posixPathFromHFSPath(*hfsPathFromPOSIXPath(*posix)) == posix),
          "a path leads back from its HFS path");
}

void checkURL(std::string_view text) {
  if (const std::optional<FileURL> url = FileURL::withString(text)) {
    require(isPath(url->path()) && (url->path() == "/" || !url->path().ends_with('/')), "a URL has a path");
    const std::optional<FileURL> again = FileURL::withString(url->string());
    require(again && again->path() == url->path() && again->string() == url->string(), "a URL is read again");
  }
  const std::optional<FileURL> made =
      FileURL::withFileSystemPath(text, PathStyle::posix, text.ends_with('/'));
  require(made.has_value() == isPath(text), "every path has a URL, nothing else has");
  require(!made || FileURL::withString(made->string())->path() == made->path(), "a URL leads back");
}

void checkDescriptor(std::string_view path, OSErr (*make)(std::string_view, AEDesc*)) {
  OwnedDescriptor file;
  require(make(path, file.get()) == kNoErr, "any absolute path has a descriptor, whatever its bytes");
  const OSErr error = AECoerceDesc(file.get(), typeFileURL, file.get());
  require((error == kNoErr) == isPath(path), "a path is coerced to a URL, nothing else is");
  const std::optional<std::string> text = stringValue(*file.get());
  require(text == hfsPathFromPOSIXPath(path), "a URL's text is the HFS path");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = Input(data, size).restAsText();
  checkPath(text);
  checkURL(text);
  if (text.starts_with('/')) {
    checkDescriptor(text, createFileURLDescriptor);
    checkDescriptor(text, createAliasDescriptor);
    checkDescriptor(text, createFileReferenceDescriptor);
  }
  return 0;
}
