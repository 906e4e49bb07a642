#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/files/FileContents.h"
#include "platform/files/FileManager.h"
#include "platform/files/Path.h"
#include "platform/files/UserFolders.h"
#include "platform/host/Host.h"
#include "platform/threads/SignalsBlocked.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Wait.h"
#include "tests/support/process/SignalMasks.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

TEST(Path, SplitsIntoComponents) {
  using List = std::vector<std::string>;
  EXPECT_EQ(pathComponents("/a/b"), (List{"/", "a", "b"}));
  EXPECT_EQ(pathComponents("a//b/"), (List{"a", "b"}));
  EXPECT_EQ(pathComponents("/"), List{"/"});
  EXPECT_EQ(pathComponents(""), List{});
}

TEST(Path, HasALastComponent) {
  EXPECT_EQ(lastPathComponent("/a/b.txt"), "b.txt");
  EXPECT_EQ(lastPathComponent("/a/b/"), "b");
  EXPECT_EQ(lastPathComponent("a"), "a");
  EXPECT_EQ(lastPathComponent("/"), "/");
  EXPECT_EQ(lastPathComponent("//"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

TEST(Path, JoinsWithOneSlash) {
  EXPECT_EQ(appendPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/a/", "/b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendPathComponent("", "b"), "b");
  EXPECT_EQ(appendPathComponent("/a", ""), "/a");
  EXPECT_EQ(appendPathComponent("/", ""), "/");
}

TEST(Path, HasAFolderAndAName) {
  EXPECT_EQ(parentPath("/a/b"), "/a");
  EXPECT_EQ(parentPath("/a"), "/");
  EXPECT_EQ(parentPath("/"), "/");
  EXPECT_EQ(entryName("/a/b"), "b");
  EXPECT_EQ(entryName("/a"), "a");
  EXPECT_EQ(entryName("/"), "");
}

TEST(Path, HasAnExtension) {
  EXPECT_EQ(pathExtension("/a/b.txt"), "txt");
  EXPECT_EQ(pathExtension("/a/b.tar.gz"), "gz");
  EXPECT_EQ(pathExtension("/a.d/b"), "");
  EXPECT_EQ(pathExtension("/a/.profile"), "");
  EXPECT_EQ(pathExtension("/a/b."), "");
}

TEST(FileManager, KnowsWhatExists) {
  const TemporaryFolder folder;
  const std::string file = folder.write("a", "x");
  bool isDirectory = true;
  EXPECT_TRUE(FileManager::fileExistsAtPath(file, &isDirectory));
  EXPECT_FALSE(isDirectory);
  EXPECT_TRUE(FileManager::fileExistsAtPath(folder.path(), &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_FALSE(FileManager::fileExistsAtPath(folder / "none", &isDirectory));
  EXPECT_TRUE(isDirectory) << "untouched";
  EXPECT_FALSE(FileManager::fileExistsAtPath(""));
  EXPECT_FALSE(FileManager::fileExistsAtPath(file + std::string("\0x", 2)));
}

TEST(FileManager, ReadsAttributesWithAndWithoutALastLink) {
  const TemporaryFolder folder;
  const std::string file = folder.write("a", "12345");
  std::filesystem::create_symlink(file, folder / "link");
  const auto attributes = FileManager::fileAttributesAtPath(file, false);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->size, 5U);
  EXPECT_EQ(attributes->ownerAccountID, getuid());
  EXPECT_EQ(attributes->hfsTypeCode, 0U);
  EXPECT_EQ(FileManager::fileAttributesAtPath(folder / "link", true)->size, 5U);
  EXPECT_EQ(FileManager::fileAttributesAtPath(folder / "link", false)->size, file.size());
  EXPECT_FALSE(FileManager::fileAttributesAtPath(folder / "none", false));
}

TEST(FileManager, ReadsTheTypeCodeFromItsAttribute) {
  // Not every file system supports such attributes. One of these two places does.
  for (const std::filesystem::path& place :
       {std::filesystem::temp_directory_path(), std::filesystem::current_path()}) {
    std::string file = (place / "keldane-type-XXXXXX").string();
    const int descriptor = mkstemp(file.data());
    ASSERT_GE(descriptor, 0);
    const bool kept = fsetxattr(descriptor, "user.com.apple.FinderInfo", "TEXTttxt", 8, 0) == 0;
    const auto attributes = FileManager::fileAttributesAtPath(file, false);
    close(descriptor);
    unlink(file.c_str());
    if (kept) {
      EXPECT_EQ(attributes->hfsTypeCode, fourCharCode("TEXT"));
      return;
    }
  }
  FAIL() << "Neither the temporary folder nor the build folder keeps extended attributes of users.";
}

TEST(FileManager, TheNameToShowIsTheLastComponent) {
  EXPECT_EQ(FileManager::displayNameAtPath("/a/b.txt"), "b.txt");
}

TEST(Workspace, HandsTheFileToTheHostsOpener) {
  std::vector<std::optional<std::string>> opened;
  Host::shared().setFileOpener([&](const std::optional<std::string>& path) {
    opened.push_back(path);
    return true;
  });
  EXPECT_TRUE(Workspace::openFile("/x"));
  EXPECT_TRUE(Workspace::openFile(std::nullopt));
  EXPECT_EQ(opened, (std::vector<std::optional<std::string>>{"/x", std::nullopt}));
  Host::shared().setFileOpener({});
  EXPECT_FALSE(Workspace::openFile(std::nullopt));
  EXPECT_FALSE(Workspace::openFile(""));
}

TEST(Workspace, StartsTheDesktopsOpenerWithoutAShell) {
  const TemporaryFolder folder;
  const std::string program =
      folder.write("xdg-open", "#!/bin/sh\nprintf '%s' \"$1\" > \"" + folder / "part" + "\"\nmv \"" +
                                   folder / "part" + "\" \"" + folder / "seen" + "\"\n");
  chmod(program.c_str(), 0755);
  const std::string path = std::string(getenv("PATH"));
  setenv("PATH", (folder.path().string() + ":" + path).c_str(), 1);
  const std::string name = "-a $(touch x); \"b\".txt";
  EXPECT_TRUE(Workspace::openFile(name));
  EXPECT_TRUE(testing::eventually([&] { return FileManager::fileExistsAtPath(folder / "seen"); }));
  EXPECT_EQ(testing::readWhole(folder / "seen"), "./" + name)
      << "not taken for an option, not read by a shell";
}

TEST(Workspace, StartsWhatALauncherNames) {
  const TemporaryFolder folder;
  const std::string program =
      folder.write("gio", "#!/bin/sh\nprintf '%s,%s' \"$1\" \"$2\" > \"" + folder / "part" + "\"\nmv \"" +
                              folder / "part" + "\" \"" + folder / "seen" + "\"\n");
  chmod(program.c_str(), 0755);
  const std::string path = std::string(getenv("PATH"));
  setenv("PATH", (folder.path().string() + ":" + path).c_str(), 1);
  EXPECT_TRUE(Workspace::openFile("/a b/c.desktop"));
  EXPECT_TRUE(testing::eventually([&] { return FileManager::fileExistsAtPath(folder / "seen"); }));
  EXPECT_EQ(testing::readWhole(folder / "seen"), "launch,/a b/c.desktop");
}

/// An opener that writes its signal mask to "seen" and waits until there is a file "go".
std::string waitingOpener(const TemporaryFolder& folder) {
  return "#!/bin/sh\nwhile read name value; do [ \"$name\" != SigBlk: ] || echo $value; done <"
         "/proc/self/status > \"" +
         folder / "part" + "\"\nmv \"" + folder / "part" + "\" \"" + folder / "seen" + "\"\nwhile [ ! -e \"" +
         folder / "go" + "\" ]; do sleep 0.01; done\n";
}

TEST(Workspace, TheHostsSignalsReachTheHostAndTheOpenersTheOpener) {
  const TemporaryFolder folder;
  chmod(folder.write("xdg-open", waitingOpener(folder)).c_str(), 0755);
  const std::string path = std::string(getenv("PATH"));
  setenv("PATH", (folder.path().string() + ":" + path).c_str(), 1);
  std::thread([] {}).join();  // the first thread also starts that of a sanitizer
  const std::ptrdiff_t threads = testing::settledThreadCount();
  const std::size_t before = testing::threadsThatTake(SIGCHLD);
  {
    const SignalsBlocked blocked;  // as on the thread that a host gives the plug-in
    EXPECT_TRUE(Workspace::openFile("/x"));
  }
  EXPECT_TRUE(testing::eventually([&] { return FileManager::fileExistsAtPath(folder / "seen"); }));
  EXPECT_EQ(testing::readWhole(folder / "seen"), "0000000000000000\n") << "it can be interrupted and ended";
  EXPECT_TRUE(Workspace::openFile("/x"));
  EXPECT_EQ(testing::countOf("task"), threads + 2) << "which wait for the openers to end";
  EXPECT_EQ(testing::threadsThatTake(SIGCHLD), before);
  folder.write("go", "");
  EXPECT_TRUE(testing::eventually([&] { return testing::countOf("task") == threads; }));
}

TEST(Workspace, SaysWhenThereIsNoOpener) {
  setenv("PATH", "/nonexistent", 1);
  EXPECT_FALSE(Workspace::openFile("/x"));
}

TEST(FileContents, ReadsRegularFilesOnly) {
  const TemporaryFolder folder;
  int error = 0;
  EXPECT_EQ(readFile(folder.write("a", "abc"), &error), (Bytes{'a', 'b', 'c'}));
  EXPECT_FALSE(readFile(folder.path(), &error));
  EXPECT_EQ(error, EISDIR);
  EXPECT_FALSE(readFile(folder / "none", &error));
  EXPECT_EQ(error, ENOENT);
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(readFile(folder / "pipe", &error)) << "nobody writes to it: must not be waited for";
  EXPECT_EQ(error, EINVAL);
  std::filesystem::resize_file(folder.write("large", ""), kLargestFile + 1);
  EXPECT_FALSE(readFile(folder / "large", &error));
  EXPECT_EQ(error, EFBIG);
}

TEST(UserFolders, FollowTheConventions) {
  setenv("HOME", "/home/somebody", 1);
  unsetenv("XDG_CONFIG_HOME");
  unsetenv("XDG_DATA_HOME");
  unsetenv("XDG_DATA_DIRS");
  EXPECT_EQ(configurationFolder(), "/home/somebody/.config");
  EXPECT_EQ(dataFolders(), (std::vector<std::filesystem::path>{"/home/somebody/.local/share",
                                                               "/usr/local/share", "/usr/share"}));
  setenv("XDG_CONFIG_HOME", "/c", 1);
  setenv("XDG_DATA_HOME", "/d", 1);
  setenv("XDG_DATA_DIRS", "/e:relative:/f:", 1);
  EXPECT_EQ(configurationFolder(), "/c");
  EXPECT_EQ(dataFolders(), (std::vector<std::filesystem::path>{"/d", "/e", "/f"}));
  setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(configurationFolder(), "/home/somebody/.config");
  unsetenv("HOME");
  EXPECT_TRUE(homeFolder().is_absolute());
}

TEST(UserFolders, HaveOneForState) {
  setenv("HOME", "/home/somebody", 1);
  unsetenv("XDG_STATE_HOME");
  EXPECT_EQ(stateFolder(), "/home/somebody/.local/state");
  setenv("XDG_STATE_HOME", "/s", 1);
  EXPECT_EQ(stateFolder(), "/s");
  setenv("XDG_STATE_HOME", "s", 1);
  EXPECT_EQ(stateFolder(), "/home/somebody/.local/state");
}

/// A runtime folder as a session makes it, and the folder of the fallbacks.
class RuntimeFolder : public ::testing::Test {
 protected:
  RuntimeFolder() {
    std::filesystem::create_directory(session_);
    setMode(session_, 0700);
    setenv("XDG_RUNTIME_DIR", session_.c_str(), 1);
  }
  static void setMode(const std::string& path, mode_t mode) { ASSERT_EQ(chmod(path.c_str(), mode), 0); }
  std::optional<std::filesystem::path> answer() const { return runtimeFolder(folder_ / "user"); }

  const testing::TemporaryFolder folder_;
  const std::string session_ = folder_ / "session";
  const std::string fallback_ = folder_ / ("user/" + std::to_string(geteuid()));
};

TEST_F(RuntimeFolder, IsTheSessionsIfItIsTheUsersAlone) { EXPECT_EQ(answer(), session_); }

TEST_F(RuntimeFolder, IsAnotherIfTheSessionsIsOpenOrMissingOrNoFolder) {
  for (const mode_t mode : {0750U, 0701U, 0770U, 0500U, 01700U}) {
    setMode(session_, mode);
    EXPECT_EQ(answer(), fallback_) << mode;
  }
  setMode(session_, 0700);
  std::filesystem::create_directory_symlink(session_, folder_ / "link");
  for (const std::string& value : {std::string(), std::string("session"), folder_ / "none",
                                   folder_.write("file", ""), folder_ / "link"}) {
    setenv("XDG_RUNTIME_DIR", value.c_str(), 1);
    EXPECT_EQ(answer(), fallback_) << value;
  }
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(answer(), fallback_);
}

TEST_F(RuntimeFolder, IsAnotherIfTheSessionIsAnotherUsers) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give a folder away";
  }
  ASSERT_EQ(chown(session_.c_str(), 12345, 12345), 0);
  EXPECT_EQ(answer(), fallback_);
}

TEST_F(RuntimeFolder, IsNoneIfOthersCouldWriteToIt) {
  unsetenv("XDG_RUNTIME_DIR");
  std::filesystem::create_directories(fallback_);
  setMode(fallback_, 0755);
  EXPECT_EQ(answer(), fallback_);
  for (const mode_t mode : {0775U, 0757U, 01777U}) {
    setMode(fallback_, mode);
    EXPECT_EQ(answer(), std::nullopt) << mode;
  }
  setMode(fallback_, 0700);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(fallback_.c_str(), 12345, 12345), 0);
    EXPECT_EQ(answer(), std::nullopt);
  }
}

TEST(UserFolders, BelowAFolderGoesByWholeNames) {
  EXPECT_TRUE(isAtOrBelow("/a/b", "/a"));
  EXPECT_TRUE(isAtOrBelow("/a", "/a"));
  EXPECT_TRUE(isAtOrBelow("/a", "/"));
  EXPECT_FALSE(isAtOrBelow("/ab", "/a"));
  EXPECT_FALSE(isAtOrBelow("/", "/a"));
}

}  // namespace
}  // namespace keldane
