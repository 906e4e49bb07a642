#include "platform/bundle/Bundle.h"

#include <gtest/gtest.h>

#include "platform/plist/PropertyListSerialization.h"
#include "platform/text/Unicode.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/process/FewDescriptors.h"

namespace keldane {
namespace {

using testing::LogCapture;
using testing::TemporaryFolder;

void setLanguage(const char* all, const char* messages, const char* lang) {
  const auto set = [](const char* name, const char* value) {
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  };
  set("LC_ALL", all);
  set("LC_MESSAGES", messages);
  set("LANG", lang);
}

class BundleTest : public ::testing::Test {
 protected:
  std::shared_ptr<Bundle> bundle() const { return Bundle::bundleWithPath(folder_.path()); }
  void table(const std::string& language, const std::string& content) const {
    folder_.write("Contents/Resources/" + language + ".lproj/Localizable.strings", content);
  }
  TemporaryFolder folder_;
};

TEST_F(BundleTest, ReadsAgainWhatItHadNoDescriptorFor) {
  folder_.write("Contents/Info.plist", "{ DaemonPath = /x; }");
  setLanguage("C", nullptr, nullptr);
  table("en", "\"key\" = \"text\";");
  const LogCapture log;
  {
    const testing::FewDescriptors none(0);
    EXPECT_TRUE(bundle()->objectForInfoDictionaryKey("DaemonPath").isAbsent());
    EXPECT_EQ(bundle()->localizedStringForKey("key", "default"), "default");
  }
  EXPECT_EQ(bundle()->objectForInfoDictionaryKey("DaemonPath"), PropertyList("/x"));
  EXPECT_EQ(bundle()->localizedStringForKey("key", "default"), "text");
}

TEST_F(BundleTest, ReadsItsInformationInEveryFormat) {
  std::string error;
  const PropertyList info = PropertyList::dictionary({{"DaemonPath", "/x"}});
  const auto binary = PropertyListSerialization::dataFromPropertyList(
      info, PropertyListSerialization::Format::binary, &error);
  for (const std::string& content :
       {std::string(binary->begin(), binary->end()),
        std::string("<plist><dict><key>DaemonPath</key><string>/x</string></dict></plist>"),
        std::string("{ DaemonPath = /x; }")}) {
    const TemporaryFolder folder;
    folder.write("Contents/Info.plist", content);
    EXPECT_EQ(Bundle::bundleWithPath(folder.path())->objectForInfoDictionaryKey("DaemonPath"),
              PropertyList("/x"));
  }
}

TEST_F(BundleTest, ReadsItsInformationBesideItsContentsWhereThereIsNoneInThem) {
  folder_.write("Info.plist", "{ DaemonPath = /beside; }");
  EXPECT_EQ(bundle()->objectForInfoDictionaryKey("DaemonPath"), PropertyList("/beside"));
  const TemporaryFolder both;
  both.write("Info.plist", "{ DaemonPath = /beside; Other = x; }");
  both.write("Contents/Info.plist", "{ DaemonPath = /within; }");
  const auto bundle = Bundle::bundleWithPath(both.path());
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("DaemonPath"), PropertyList("/within"));
  EXPECT_TRUE(bundle->objectForInfoDictionaryKey("Other").isAbsent());
}

TEST_F(BundleTest, ABrokenInformationDictionaryReadsAsEmptyWithALine) {
  for (const std::string content : {"", "<plist><dict>", "\"a string\"", "bplist00"}) {
    const TemporaryFolder folder;
    const LogCapture log;
    folder.write("Contents/Info.plist", content);
    const auto bundle = Bundle::bundleWithPath(folder.path());
    EXPECT_EQ(bundle->infoDictionary().count(), 0U);
    EXPECT_TRUE(bundle->objectForInfoDictionaryKey("DaemonPath").isAbsent());
    EXPECT_EQ(log.lines().size(), 1U) << content;
  }
}

TEST_F(BundleTest, AMissingInformationDictionaryIsEmptyWithoutAWord) {
  const LogCapture log;
  EXPECT_EQ(bundle()->infoDictionary().count(), 0U);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(bundle()->executablePath().empty());
}

TEST_F(BundleTest, IsOneObjectAPath) {
  std::filesystem::create_directory_symlink(folder_.path(), folder_ / "link");
  EXPECT_EQ(bundle(), Bundle::bundleWithPath(folder_ / "link"));
  EXPECT_EQ(Bundle::bundleWithPath(folder_ / "none"), nullptr);
  EXPECT_EQ(Bundle::bundleWithPath(folder_.write("file", "")), nullptr);
}

TEST_F(BundleTest, ItsModuleLiesInsideIt) {
  folder_.write("Contents/Info.plist", "{ CFBundleExecutable = \"Thing.so\"; }");
  EXPECT_EQ(bundle()->executablePath(),
            std::filesystem::canonical(folder_.path()) / "Contents" / "Linux" / "Thing.so");
  for (const char* name : {"../../../x.so", "/x.so", "..", "a/b"}) {
    const TemporaryFolder folder;
    folder.write("Contents/Info.plist", std::string("{ CFBundleExecutable = \"") + name + "\"; }");
    EXPECT_TRUE(Bundle::bundleWithPath(folder.path())->executablePath().empty()) << name;
  }
}

TEST_F(BundleTest, SpeaksTheUsersLanguage) {
  table("en", "k = english;");
  table("de", "k = deutsch;");
  table("de_AT", "k = steirisch;");
  const auto text = [&] { return bundle()->localizedStringForKey("k", "default"); };
  setLanguage("de_DE.UTF-8", "en_US", "en_US");
  EXPECT_EQ(text(), "deutsch") << "LC_ALL decides";
  setLanguage(nullptr, "de_AT.UTF-8@euro", "en_US");
  EXPECT_EQ(text(), "steirisch") << "then LC_MESSAGES";
  setLanguage("", "", "de");
  EXPECT_EQ(text(), "deutsch") << "then LANG; an empty value is none";
  setLanguage(nullptr, nullptr, "fr_FR");
  EXPECT_EQ(text(), "english");
  setLanguage("C", nullptr, "de_DE");
  EXPECT_EQ(text(), "english");
  setLanguage("../../de", nullptr, nullptr);
  EXPECT_EQ(text(), "english") << "a name is no path";
  setLanguage(nullptr, nullptr, nullptr);
  EXPECT_EQ(text(), "english");
}

TEST_F(BundleTest, FallsBackOnTheDefaultValueAndThenOnTheKey) {
  setLanguage("de_DE", nullptr, nullptr);
  table("de", "other = x; number = (1);");
  EXPECT_EQ(bundle()->localizedStringForKey("k", "default"), "default");
  EXPECT_EQ(bundle()->localizedStringForKey("k", ""), "k");
  EXPECT_EQ(bundle()->localizedStringForKey("number", "default"), "default") << "no text";
  EXPECT_EQ(bundle()->localizedStringForKey("k", "default", "OtherTable"), "default");
}

TEST_F(BundleTest, ReadsTablesInUtf16) {
  setLanguage("de", nullptr, nullptr);
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : utf16FromUtf8("\"k\" = \"ä😀\";")) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  table("de", bytes);
  EXPECT_EQ(bundle()->localizedStringForKey("k", "default"), "ä😀");
}

TEST_F(BundleTest, ABrokenTableReadsAsEmptyWithOneLine) {
  setLanguage("de", nullptr, nullptr);
  table("de", "\"k\" = \"no end");
  const LogCapture log;
  EXPECT_EQ(bundle()->localizedStringForKey("k", "default"), "default");
  EXPECT_EQ(bundle()->localizedStringForKey("k", "default"), "default");
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(BundleTest, CodeInNoBundleBelongsToTheMainOne) {
  static const char here = 0;
  EXPECT_EQ(Bundle::bundleForClass(&here), Bundle::mainBundle());
  EXPECT_EQ(Bundle::mainBundle()->bundlePath(),
            std::filesystem::read_symlink("/proc/self/exe").parent_path());
  Bundle::setMainBundle(bundle());
  EXPECT_EQ(Bundle::bundleForClass(&here), bundle());
}

}  // namespace
}  // namespace keldane
