// Tests the built bundle. Its folder lies beside that of the test programs.
#include <gtest/gtest.h>

#include "platform/bundle/Bundle.h"
#include "platform/plugin/PlugIn.h"

namespace keldane {
namespace {

constexpr char kUnknown[] = "(the table lacks this key)";

std::shared_ptr<Bundle> builtBundle() {
  return Bundle::bundleWithPath(std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() /
                                "Keldane.plugin");
}

std::string title(const char* key) { return builtBundle()->localizedStringForKey(key, kUnknown); }

TEST(InformationDictionary, NamesTheModuleTheDaemonAndThePreferences) {
  const std::shared_ptr<Bundle> bundle = builtBundle();
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFBundleIdentifier"), PropertyList("com.keldane.cmm"));
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFBundleName"), PropertyList("Keldane"));
  EXPECT_EQ(bundle->executablePath().filename(), "KeldaneCMM.so");
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("DaemonPath").string().front(), '/');
  EXPECT_TRUE(bundle->objectForInfoDictionaryKey("Prefpane Path").string().ends_with(".desktop"));
}

TEST(InformationDictionary, RegistersTheFactoryForTheContextualMenuType) {
  const std::shared_ptr<Bundle> bundle = builtBundle();
  EXPECT_EQ(bundle->objectForInfoDictionaryKey("CFPlugInFactories"),
            PropertyList::dictionary({{"3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36", "KeldanePluginFactory"}}));
  const std::vector<CFOwner<CFUUIDRef>> factories = PlugIn::factoriesForType(*bundle, contextualMenuTypeID());
  ASSERT_EQ(factories.size(), 1U);
  const CFOwner<CFStringRef> text(CFUUIDCreateString(nullptr, factories.front().get()));
  EXPECT_STREQ(CFStringGetUTF8Ptr(text.get(), nullptr), "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36");
}

TEST(EnglishTable, HoldsTheDefaults) {
  setenv("LC_ALL", "en_US.UTF-8", 1);
  EXPECT_EQ(title("Single File Status"), "Status: %@");
  EXPECT_EQ(title("Multi-file Status"), "Status: <multiple files selected>");
  EXPECT_EQ(title("Back up This File"), "Back This Up");
  EXPECT_EQ(title("Don't Back up This File"), "Don't Back This Up");
  EXPECT_EQ(title("ASAP"), "Back Up This File As Soon As Possible");
  EXPECT_EQ(title("Prefs"), "Open Keldane Preferences\u2026");
  EXPECT_EQ(title("Menu Title"), "Keldane");
}

TEST(GermanTable, HoldsEveryTitle) {
  setenv("LC_ALL", "de_AT.UTF-8", 1);
  for (const char* key : {"Single File Status", "Multi-file Status", "Back up This File",
                          "Don't Back up This File", "ASAP", "Prefs", "Menu Title"}) {
    EXPECT_NE(title(key), kUnknown) << key;
  }
  EXPECT_NE(title("ASAP"), "Back Up This File As Soon As Possible");
  const std::string status = title("Single File Status");
  EXPECT_EQ(status.find("%@"), status.rfind('%')) << "one place for the daemon's word, and no other format";
  EXPECT_EQ(title("Multi-file Status").find('%'), std::string::npos);
}

}  // namespace
}  // namespace keldane
