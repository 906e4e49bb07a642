#include "platform/plugin/PlugIn.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "tests/support/TemporaryFolder.h"

namespace keldane {
namespace {

using testing::TemporaryFolder;

constexpr char kInfo[] =
    "{ CFBundleExecutable = \"Nothing.so\"; CFPlugInTypes = { \"2f6522e9-3e66-11d5-80a7-003065b300bc\" = "
    "(\"nonsense\", \"3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36\"); }; }";

TEST(PlugIn, CountsTheInstancesOfAFactory) {
  const CFUUIDRef factory = contextualMenuInterfaceID();
  EXPECT_EQ(CFPlugInGetInstanceCountForFactory(factory), 0);
  CFPlugInAddInstanceForFactory(factory);
  CFPlugInAddInstanceForFactory(factory);
  EXPECT_EQ(CFPlugInGetInstanceCountForFactory(factory), 2);
  EXPECT_EQ(CFPlugInGetInstanceCountForFactory(iUnknownID()), 0);
  CFPlugInRemoveInstanceForFactory(factory);
  CFPlugInRemoveInstanceForFactory(factory);
  CFPlugInRemoveInstanceForFactory(factory);
  EXPECT_EQ(CFPlugInGetInstanceCountForFactory(factory), 0);
}

TEST(PlugIn, FindsTheFactoriesOfATypeWhateverTheCaseOfItsText) {
  const TemporaryFolder folder;
  folder.write("Contents/Info.plist", kInfo);
  const auto factories =
      PlugIn::factoriesForType(*Bundle::bundleWithPath(folder.path()), contextualMenuTypeID());
  ASSERT_EQ(factories.size(), 1U);
  const CFOwner<CFStringRef> text(CFUUIDCreateString(kCFAllocatorSystemDefault, factories[0].get()));
  EXPECT_STREQ(CFStringGetUTF8Ptr(text.get(), nullptr), "3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36");
  EXPECT_TRUE(PlugIn::factoriesForType(*Bundle::bundleWithPath(folder.path()), iUnknownID()).empty());
}

TEST(PlugIn, SaysWhyABundleCannotBeLoaded) {
  const TemporaryFolder folder;
  std::string error;
  EXPECT_EQ(PlugIn::load(folder / "none", &error), nullptr);
  EXPECT_NE(error.find(folder / "none"), std::string::npos);
  std::filesystem::create_directory(folder / "empty");
  EXPECT_EQ(PlugIn::load(folder / "empty", &error), nullptr);
  EXPECT_NE(error.find("Info.plist"), std::string::npos);
  folder.write("noname/Contents/Info.plist", "{ a = b; }");
  EXPECT_EQ(PlugIn::load(folder / "noname", &error), nullptr);
  EXPECT_NE(error.find("CFBundleExecutable"), std::string::npos);
  folder.write("nomodule/Contents/Info.plist", kInfo);
  EXPECT_EQ(PlugIn::load(folder / "nomodule", &error), nullptr);
  EXPECT_NE(error.find("Nothing.so cannot be loaded"), std::string::npos);
  folder.write("broken/Contents/Info.plist", kInfo);
  folder.write("broken/Contents/Linux/Nothing.so", "this is no module");
  EXPECT_EQ(PlugIn::load(folder / "broken", &error), nullptr);
  EXPECT_NE(error.find("Nothing.so cannot be loaded"), std::string::npos);
  folder.write("pipe/Contents/Info.plist", kInfo);
  std::filesystem::create_directory(folder / "pipe/Contents/Linux");
  ASSERT_EQ(mkfifo((folder / "pipe/Contents/Linux/Nothing.so").c_str(), 0600), 0);
  EXPECT_EQ(PlugIn::load(folder / "pipe", &error), nullptr) << "without waiting for somebody to write";
  EXPECT_NE(error.find("is no file"), std::string::npos);
}

TEST(PlugIn, SaysWhyAFactoryMakesNothing) {
  const TemporaryFolder folder;
  Dl_info library;
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&std::getenv), &library), 0);
  const auto instanceOf = [&](const std::string& name, const std::string& info, std::string& error) {
    folder.write(name + "/Contents/Info.plist", info);
    std::filesystem::create_directory(folder / (name + "/Contents/Linux"));
    std::filesystem::create_symlink(library.dli_fname, folder / (name + "/Contents/Linux/Nothing.so"));
    const std::shared_ptr<PlugIn> plugIn = PlugIn::load(folder / name, &error);
    const auto factories =
        PlugIn::factoriesForType(*Bundle::bundleWithPath(folder / name), contextualMenuTypeID());
    return plugIn ? plugIn->createInstance(factories.at(0).get(), contextualMenuTypeID(), &error) : nullptr;
  };
  std::string error;
  EXPECT_EQ(instanceOf("unregistered", kInfo, error), nullptr);
  EXPECT_NE(error.find("registers no function for the factory 3F1C7A52"), std::string::npos) << error;
  std::string info = kInfo;
  info.replace(info.rfind('}'), 1,
               "CFPlugInFactories = { \"3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36\" = \"no such function\"; }; }");
  EXPECT_EQ(instanceOf("unexported", info, error), nullptr);
  EXPECT_NE(error.find("does not export its factory function no such function"), std::string::npos) << error;
}

TEST(PlugIn, NoTypeHasNoFactoryWhateverTheKeysAre) {
  const TemporaryFolder folder;
  folder.write("Contents/Info.plist",
               "{ CFPlugInTypes = { nonsense = (\"3F1C7A52-9B0E-4D6A-B2C4-7E51A9D08F36\"); }; }");
  EXPECT_TRUE(PlugIn::factoriesForType(*Bundle::bundleWithPath(folder.path()), nullptr).empty());
}

TEST(PlugIn, LooksInTheUsersFoldersFirst) {
  const TemporaryFolder folder;
  setenv("XDG_DATA_HOME", (folder / "mine").c_str(), 1);
  setenv("XDG_DATA_DIRS", (folder / "a").append(":").append(folder / "b").c_str(), 1);
  const auto folders = PlugIn::searchFolders();
  ASSERT_EQ(folders.size(), 4U);
  EXPECT_EQ(folders[0], folder / "mine/keldane/plugins");
  EXPECT_EQ(folders[2], folder / "b/keldane/plugins");
  folder.write("a/keldane/plugins/Other.plugin/Contents/Info.plist", "{ a = b; }");
  folder.write("a/keldane/plugins/z.txt", "");
  EXPECT_FALSE(PlugIn::findBundleForType(iUnknownID()));
  folder.write("b/keldane/plugins/B.plugin/Contents/Info.plist", kInfo);
  EXPECT_EQ(PlugIn::findBundleForType(contextualMenuTypeID()), folder / "b/keldane/plugins/B.plugin");
  folder.write("mine/keldane/plugins/Z.plugin/Contents/Info.plist", kInfo);
  folder.write("mine/keldane/plugins/A.plugin/Contents/Info.plist", kInfo);
  EXPECT_EQ(PlugIn::findBundleForType(contextualMenuTypeID()), folder / "mine/keldane/plugins/A.plugin");
}

TEST(ContextualMenu, ItsIdentifiersAreTheInterfaces) {
  const auto text = [](CFUUIDRef id) {
    const CFOwner<CFStringRef> string(CFUUIDCreateString(kCFAllocatorSystemDefault, id));
    return std::string(CFStringGetUTF8Ptr(string.get(), nullptr));
  };
  EXPECT_EQ(text(contextualMenuTypeID()), "2F6522E9-3E66-11D5-80A7-003065B300BC");
  EXPECT_EQ(text(contextualMenuInterfaceID()), "32997B62-3E66-11D5-BEAB-003065B300BC");
  EXPECT_EQ(text(iUnknownID()), "00000000-0000-0000-C000-000000000046");
}

}  // namespace
}  // namespace keldane
