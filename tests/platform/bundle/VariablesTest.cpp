#include "platform/bundle/Variables.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/bundle/Bundle.h"
#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

class Variables : public ::testing::Test {
 protected:
  Variables() {
    setenv("KELDANE_A", "first", 1);
    setenv("KELDANE_2", "${KELDANE_A}", 1);
    setenv("KELDANE_EMPTY", "", 1);
    unsetenv("KELDANE_NONE");
  }
};

TEST_F(Variables, StandWhereTheirNamesAre) {
  EXPECT_EQ(withVariables(""), "");
  EXPECT_EQ(withVariables("/a/$HOME/b}"), "/a/$HOME/b}") << "no braces, no variable";
  EXPECT_EQ(withVariables("${KELDANE_A}"), "first");
  EXPECT_EQ(withVariables("/x/${KELDANE_A}/y${KELDANE_A}"), "/x/first/yfirst");
  EXPECT_EQ(withVariables("$${KELDANE_A}$"), "$first$");
  EXPECT_EQ(withVariables("${KELDANE_2}"), "${KELDANE_A}") << "once";
}

TEST_F(Variables, ThatAreMissingOrHaveNoNameLeaveNothing) {
  for (const char* text :
       {"/x/${KELDANE_NONE}", "/x/${KELDANE_EMPTY}/y", "${KELDANE_A}${KELDANE_NONE}", "${", "${}",
        "/${KELDANE_A", "${KELDANE A}", "${2A}", "${KELDANE_\xc3\xa4}", "${KELDANE_A:-x}"}) {
    EXPECT_EQ(withVariables(text), std::nullopt) << text;
  }
}

TEST_F(Variables, TheRuntimeFolderIsTheEffectiveUsersOwn) {
  const TemporaryFolder folder;
  ASSERT_EQ(chmod(folder.path().c_str(), 0700), 0);
  setenv("XDG_RUNTIME_DIR", folder.path().c_str(), 1);
  EXPECT_EQ(withVariables("${XDG_RUNTIME_DIR}/s"), folder / "s");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  EXPECT_NE(withVariables("${XDG_RUNTIME_DIR}/s"), folder / "s");
}

TEST_F(Variables, AreExpandedInTheTextsOfABundle) {
  const TemporaryFolder folder;
  folder.write(
      "Contents/Info.plist",
      "{ DaemonPath = \"/run/${KELDANE_A}/s\"; Other = \"${KELDANE_NONE}\"; List = (\"${KELDANE_A}\");"
      " CFBundleExecutable = \"${KELDANE_A}\"; }");
  const std::shared_ptr<Bundle> bundle = Bundle::bundleWithPath(folder.path());
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("DaemonPath"), PropertyList("/run/first/s"));
  EXPECT_TRUE(bundle->objectForInfoDictionaryKey("Other").isAbsent());
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("List")[0], PropertyList("${KELDANE_A}")) << "texts alone";
  EXPECT_EQ(bundle->infoDictionary()["DaemonPath"], PropertyList("/run/${KELDANE_A}/s"));
  EXPECT_EQ(bundle->executablePath().filename(), "${KELDANE_A}")
      << "what runs is not for the environment to say";
  setenv("KELDANE_A", "second", 1);
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("DaemonPath"), PropertyList("/run/second/s"));
}

TEST_F(Variables, AreExpandedInAnInformationDictionaryThatIsALink) {
  const TemporaryFolder folder;
  const std::string file = folder.write("etc/Keldane.plist", "{ DaemonPath = \"/run/${KELDANE_A}/s\"; }");
  std::filesystem::create_directories(folder / "Keldane.plugin/Contents");
  std::filesystem::create_symlink(file, folder / "Keldane.plugin/Contents/Info.plist");
  EXPECT_EQ(Bundle::bundleWithPath(folder / "Keldane.plugin")->objectForInfoDictionaryKey("DaemonPath"),
            PropertyList("/run/first/s"));
}

}  // namespace
}  // namespace keldane
