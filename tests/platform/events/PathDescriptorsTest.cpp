#include "platform/events/PathDescriptors.h"

#include <gtest/gtest.h>

#include <random>

#include "platform/events/OwnedDescriptor.h"

namespace keldane {
namespace {

using Create = OSErr (*)(std::string_view, AEDesc*);

std::string text(const AEDesc& desc) {
  std::string data(AEGetDescDataSize(&desc), '\0');
  AEGetDescData(&desc, data.data(), data.size());
  return data;
}

/// Converts a descriptor to a path as a plug-in does.
std::optional<std::string> pathThrough(Create create, const std::string& path) {
  OwnedDescriptor desc;
  create(path, desc.get());
  OwnedDescriptor url;
  const OSErr error = AECoerceDesc(desc.get(), typeFileURL, url.get());
  if (error != kNoErr) {
    EXPECT_EQ(error, errAECoercionFail);
    return std::nullopt;
  }
  const std::optional<std::string> hfs = stringValue(*url.get());
  const std::optional<FileURL> file =
      hfs ? FileURL::withFileSystemPath(*hfs, PathStyle::hfs, true) : std::nullopt;
  return file ? std::optional(file->path()) : std::nullopt;
}

class PathDescriptorsTest : public ::testing::TestWithParam<Create> {};

TEST_P(PathDescriptorsTest, EveryPathSurvives) {
  for (const std::string path :
       {"/", "/a", "/usr/share/doc", "/with blank/50%/x", "/a:b/c:d", "/new\nline", "/tab\tquote\"'",
        "/emoji 😀/日本/ÄÖÜ", "/#?&=+;,@!$()*[]{}|\\^`~<>", "/..x/.hidden"}) {
    EXPECT_EQ(pathThrough(GetParam(), path), path);
  }
  EXPECT_EQ(pathThrough(GetParam(), "/" + std::string(4095, 'x')), "/" + std::string(4095, 'x'));
  EXPECT_EQ(pathThrough(GetParam(), "/a/b/"), "/a/b") << "without a trailing slash";
}

TEST_P(PathDescriptorsTest, RandomPathsSurvive) {
  static constexpr const char* kPieces[] = {"a", ":", "::", "%", "%41",  " ", "\n",
                                            "é", "😀", ".",  "-", "file", "?", "#"};
  std::mt19937 random(7);
  for (int i = 0; i < 500; ++i) {
    std::string path;
    for (auto names = 1 + random() % 6; names > 0; --names) {
      path += "/n";
      for (auto pieces = random() % 5; pieces > 0; --pieces) {
        path += kPieces[random() % std::size(kPieces)];
      }
    }
    EXPECT_EQ(pathThrough(GetParam(), path), path);
  }
}

TEST_P(PathDescriptorsTest, WhatIsNoPathFails) {
  for (const std::string& path :
       {std::string("relative"), std::string(), std::string("/a\xFF"), std::string("/a\0b", 4)}) {
    EXPECT_EQ(pathThrough(GetParam(), path), std::nullopt);
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, PathDescriptorsTest,
                         ::testing::Values(&createFileURLDescriptor, &createAliasDescriptor,
                                           &createFileReferenceDescriptor));

TEST(PathDescriptors, TextIsNoFile) {
  AEDesc desc{typeNull, nullptr};
  AEDesc url{typeNull, nullptr};
  AECreateDesc(typeUTF8Text, "/etc", 4, &desc);
  EXPECT_EQ(AECoerceDesc(&desc, typeFileURL, &url), errAECoercionFail);
  AEDisposeDesc(&desc);
  EXPECT_EQ(AECoerceDesc(&desc, typeFileURL, &url), errAECoercionFail) << "nor is nothing";
}

TEST(PathDescriptors, AListOfOneIsThatOne) {
  AEDesc desc{typeNull, nullptr};
  AEDesc list{typeNull, nullptr};
  AEDesc url{typeNull, nullptr};
  createAliasDescriptor("/etc", &desc);
  AECreateList(nullptr, 0, false, &list);
  EXPECT_EQ(AECoerceDesc(&list, typeFileURL, &url), errAECoercionFail) << "an empty list is nothing";
  AEPutDesc(&list, 0, &desc);
  EXPECT_EQ(AECoerceDesc(&list, typeFileURL, &url), kNoErr);
  EXPECT_EQ(text(url), "file:///etc");
  AEDisposeDesc(&url);
  AEPutDesc(&list, 0, &desc);
  EXPECT_EQ(AECoerceDesc(&list, typeFileURL, &url), errAECoercionFail) << "two are no one";
  AEDisposeDesc(&desc);
  AEDisposeDesc(&list);
}

TEST(PathDescriptors, BrokenRecordsFail) {
  for (const std::string& bytes :
       {std::string(), std::string("KALS"), std::string("KALS\1\0\0\0\5\0\0\0/etc", 16),
        std::string("KALS\2\0\0\0\4\0\0\0/etc", 16), std::string("NONE\1\0\0\0\4\0\0\0/etc", 16)}) {
    AEDesc desc{typeNull, nullptr};
    AEDesc url{typeNull, nullptr};
    AECreateDesc(typeAlias, bytes.data(), bytes.size(), &desc);
    EXPECT_EQ(AECoerceDesc(&desc, typeFileURL, &url), errAECoercionFail);
    AEDisposeDesc(&desc);
  }
}

TEST(HFSPath, ExchangesColonAndSlash) {
  EXPECT_EQ(hfsPathFromPOSIXPath("/a:b/c"), "Linux:a/b:c");
  EXPECT_EQ(hfsPathFromPOSIXPath("/"), "Linux:");
  EXPECT_EQ(hfsPathFromPOSIXPath("//a///b/"), "Linux:a:b");
  EXPECT_EQ(hfsPathFromPOSIXPath("a"), std::nullopt);
  EXPECT_EQ(posixPathFromHFSPath("Linux:a/b:c"), "/a:b/c");
  EXPECT_EQ(posixPathFromHFSPath("Any Volume"), "/");
  EXPECT_EQ(posixPathFromHFSPath(":a"), std::nullopt);
  EXPECT_EQ(posixPathFromHFSPath(""), std::nullopt);
}

TEST(FileURL, EscapesWhatIsNotPlain) {
  EXPECT_EQ(FileURL::withFileSystemPath("/a b/é", PathStyle::posix, false)->string(), "file:///a%20b/%C3%A9");
  EXPECT_EQ(FileURL::withFileSystemPath("/a", PathStyle::posix, true)->string(), "file:///a/");
  EXPECT_EQ(FileURL::withFileSystemPath("/", PathStyle::posix, true)->string(), "file:///");
}

TEST(FileURL, ReadsFileURLsOnly) {
  EXPECT_EQ(FileURL::withString("file:///a%20b")->path(), "/a b");
  EXPECT_EQ(FileURL::withString("FILE://localhost/a/")->path(), "/a");
  EXPECT_EQ(FileURL::withString("file:///%4a%4A%4f%4F%30%39%6a%6A")->path(), "/JJOO09jj");
  for (const char* url : {"", "file", "file:/a", "http:///a", "file://host/a", "file:///a%2", "file:///a%zz",
                          "file:///a%00b", "file:///a%FF", "file:///a?q", "file:///a#f", "file://"}) {
    EXPECT_FALSE(FileURL::withString(url)) << url;
  }
}

}  // namespace
}  // namespace keldane
