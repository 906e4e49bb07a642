// The fixture of the menu's tests: a host, a daemon, an instance of the plug-in, and a reader for the menus
// that it builds.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Common/nodes/FileNode.h"
#include "KeldaneCMM/Source/KeldanePlugin.h"
#include "KeldaneCMM/Source/MenuDescriptors.h"
#include "log/KeldaneLog.h"
#include "platform/events/PathDescriptors.h"
#include "platform/host/Host.h"
#include "tests/support/ClientBundle.h"
#include "tests/support/LogCapture.h"
#include "tests/support/daemon/FakeDaemon.h"

namespace keldane::testing {

constexpr char kAskForNode[] = "dictionaryForPath:withDirSizes:";

/// The log is on while this lives, and its lines are kept.
class LogSwitchedOn : public LogCapture {
 public:
  LogSwitchedOn() { gLoggingEnabled = true; }
  ~LogSwitchedOn() { gLoggingEnabled = false; }
  LogSwitchedOn(const LogSwitchedOn&) = delete;
  LogSwitchedOn& operator=(const LogSwitchedOn&) = delete;
};

/// A selection as a host passes it: one path is one descriptor, several paths are a list.
class Selection : public OwnedDescriptor {
 public:
  using Maker = OSErr (*)(std::string_view path, AEDesc* result);

  Selection(const std::vector<std::string>& paths, Maker maker = createFileURLDescriptor,
            bool alwaysAList = false) {
    if (paths.size() == 1 && !alwaysAList) {
      EXPECT_EQ(maker(paths.front(), get()), kNoErr);
      return;
    }
    EXPECT_EQ(AECreateList(nullptr, 0, false, get()), kNoErr);
    for (const std::string& path : paths) {
      OwnedDescriptor item;
      EXPECT_EQ(maker(path, item.get()), kNoErr);
      EXPECT_EQ(AEPutDesc(get(), 0, item.get()), kNoErr);
    }
  }
};

inline OSErr createText(std::string_view text, AEDesc* result) {
  return AECreateDesc(typeUTF8Text, text.data(), text.size(), result);
}

/// One record of a menu. `command` holds the number's bytes unconverted.
struct MenuItem {
  std::string title;
  std::string command;
  std::optional<std::uint32_t> attributes;
  bool operator==(const MenuItem&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const MenuItem& item) {
  return out << '"' << item.title << "\" '" << item.command << "' "
             << (item.attributes ? std::to_string(*item.attributes) : "-");
}

struct Menu {
  MenuItem parent;
  std::vector<MenuItem> items;
};

inline MenuItem readItem(const AERecord& record) {
  MenuItem item;
  CFStringRef title = nullptr;
  EXPECT_EQ(AEGetParamPtr(&record, keyAEName, typeCFStringRef, nullptr, &title, sizeof(title), nullptr),
            kNoErr);
  std::size_t length = 0;
  if (const char* text = CFStringGetUTF8Ptr(title, &length)) {
    item.title.assign(text, length);
  }
  DescType type = 0;
  std::size_t size = 0;
  EXPECT_EQ(AESizeOfParam(&record, keyContextualMenuCommandID, &type, &size), kNoErr);
  EXPECT_EQ(type, typeLongInteger);
  item.command.resize(size);
  AEGetParamPtr(&record, keyContextualMenuCommandID, typeWildCard, nullptr, item.command.data(), size,
                nullptr);
  std::uint32_t attributes = 0;
  if (AESizeOfParam(&record, keyContextualMenuAttributes, &type, &size) == kNoErr) {
    EXPECT_EQ(type, typeLongInteger);
    EXPECT_EQ(size, sizeof(attributes));
    AEGetParamPtr(&record, keyContextualMenuAttributes, typeWildCard, nullptr, &attributes,
                  sizeof(attributes), nullptr);
    item.attributes = attributes;
  }
  EXPECT_EQ(AESizeOfParam(&record, fourCharCode("cmmd"), nullptr, nullptr), errAEDescNotFound)
      << "modifiers are never written";
  return item;
}

inline std::vector<MenuItem> readItems(const AEDescList& list) {
  std::vector<MenuItem> items;
  std::int32_t count = 0;
  AECountItems(&list, &count);
  for (std::int32_t i = 1; i <= count; ++i) {
    OwnedDescriptor record;
    EXPECT_EQ(AEGetNthDesc(&list, i, typeWildCard, nullptr, record.get()), kNoErr);
    EXPECT_EQ(record.get()->descriptorType, typeAERecord);
    items.push_back(readItem(*record.get()));
  }
  return items;
}

/// The bytes of a command number as an item holds it: 4 of them, the least significant first.
inline std::string command(const char (&code)[5]) { return {code[3], code[2], code[1], code[0]}; }

/// The host of these tests is the Finder with item attributes. The bundle is in English, and there is no
/// daemon yet.
class MenuTest : public ::testing::Test {
 protected:
  MenuTest() {
    setenv("LC_ALL", "C", 1);
    Bundle::setMainBundle(bundle_.bundle());
    Host& host = Host::shared();
    host.setProcess(fourCharCode("MACS"), fourCharCode("FNDR"));
    host.setContextualMenuAttributes(gestaltContextualMenuHasAttributeAndModifierKeys);
    host.setFileOpener([this](const std::optional<std::string>& path) {
      opened_.push_back(path);
      return true;
    });
    instance_ = static_cast<KeldanePluginInstance*>(
        KeldanePluginFactory(kCFAllocatorSystemDefault, contextualMenuTypeID()));
  }
  ~MenuTest() override {
    if (instance_ != nullptr) {
      KeldanePlugin_PostMenuCleanup(instance_);
      EXPECT_EQ(KeldanePlugin_Release(instance_), 0U);
    }
    Host& host = Host::shared();
    host.setProcess(fourCharCode("????"), fourCharCode("????"));
    host.setProcessInformationError(kNoErr);
    host.setContextualMenuAttributes(0);
    host.setGestaltError(kNoErr);
    host.setApplicationAvailable(true);
    host.setFileOpener({});
    Bundle::setMainBundle(nullptr);
  }

  void listen() {
    daemon_.reset();  // this removes the socket, so it comes before the next one makes its own
    daemon_ = std::make_unique<FakeDaemon>(bundle_.daemonPath());
  }
  /// Puts a file where the daemon's socket belongs, so that nobody answers there.
  void installWithoutDaemon() { bundle_.folder().write("daemon.sock", ""); }

  std::string file(const std::string& name) { return bundle_.folder().write("files/" + name, "content"); }
  std::string folder(const std::string& name) {
    const std::string path = bundle_.folder() / ("files/" + name);
    std::filesystem::create_directories(path);
    return path;
  }
  static PropertyList node(std::uint32_t simpleFlags, bool isDirectory = false,
                           const PropertyList& state = "Backed up") {
    return PropertyList::dictionary({{"simpleFlags", simpleFlags},
                                     {"isDirectory", PropertyList::boolean(isDirectory)},
                                     {"state", state}});
  }
  /// Sets the daemon's answer for a path. It knows nothing of other paths.
  std::string know(const std::string& path, const PropertyList& dictionary) {
    if (!daemon_) {
      listen();
    }
    nodes_[path] = dictionary;
    daemon_->answer(kAskForNode, [nodes = nodes_](const PropertyList::Array& arguments) {
      const auto found = nodes.find(std::string(arguments.front().string()));
      return found == nodes.end() ? PropertyList() : found->second;
    });
    return path;
  }

  OSStatus examine(const AEDesc* context) {
    AEDisposeDesc(commands_.get());
    AECreateList(nullptr, 0, false, commands_.get());
    return KeldanePlugin_ExamineContext(instance_, context, commands_.get());
  }
  OSStatus examine(const std::vector<std::string>& paths) {
    const Selection selection(paths);
    return examine(selection.get());
  }
  /// The menu that the last examination appended.
  std::optional<Menu> menu() const {
    const std::vector<MenuItem> parents = readItems(*commands_.get());
    if (parents.empty()) {
      return std::nullopt;
    }
    EXPECT_EQ(parents.size(), 1U);
    OwnedDescriptor parent;
    OwnedDescriptor items;
    EXPECT_EQ(AEGetNthDesc(commands_.get(), 1, typeWildCard, nullptr, parent.get()), kNoErr);
    EXPECT_EQ(AEGetParamDesc(parent.get(), keyContextualMenuSubmenu, typeWildCard, items.get()), kNoErr);
    EXPECT_EQ(items.get()->descriptorType, typeAEList);
    return Menu{parents.front(), readItems(*items.get())};
  }
  /// The titles of the examination's menu, which most tests check. "(none)" when there is no menu.
  std::vector<std::string> titles(const std::vector<std::string>& paths) {
    EXPECT_EQ(examine(paths), kNoErr);
    const std::optional<Menu> shown = menu();
    std::vector<std::string> result;
    for (const MenuItem& item : shown ? shown->items : std::vector<MenuItem>{{"(none)", "", {}}}) {
      result.push_back(item.title);
    }
    return result;
  }
  void cleanup() { KeldanePlugin_PostMenuCleanup(instance_); }

  ClientBundle bundle_;
  std::unique_ptr<FakeDaemon> daemon_;
  KeldanePluginInstance* instance_ = nullptr;
  OwnedDescriptor commands_;
  std::vector<std::optional<std::string>> opened_;

 private:
  std::map<std::string, PropertyList> nodes_;
};

}  // namespace keldane::testing
