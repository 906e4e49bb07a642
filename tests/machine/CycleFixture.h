// Whole menu cycles of the plug-in, through its function table, against the daemon in a process of its own;
// so that all threads, descriptors and memory of the test's process are the plug-in's.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Common/calls/KeldProxy.h"
#include "KeldaneCMM/Source/MenuCommands.h"
#include "tests/KeldaneCMM/Source/MenuFixture.h"
#include "tests/support/process/Footprint.h"
#include "tests/support/process/Program.h"

namespace keldane::testing {

/// Every how many of a sweep's steps are taken: 1 in a quick build, more where each step is slow;
/// KELDANE_FAULT_STRIDE overrules it.
inline long faultStride(long instrumented) {
  const char* asked = std::getenv("KELDANE_FAULT_STRIDE");
  const long stride = asked == nullptr ? 0 : std::strtol(asked, nullptr, 10);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(NDEBUG)
  return stride > 0 ? stride : instrumented;
#else
  static_cast<void>(instrumented);
  return stride > 0 ? stride : 1;
#endif
}

class CycleFixture : public MenuTest {
 protected:
  using Titles = std::vector<std::string>;

  CycleFixture() {
    file_ = file("a.txt");
    startDaemon();
  }

  void startDaemon() {
    program_ = std::make_unique<Program>(
        std::vector<std::string>{KELDANED_PROGRAM, "--foreground", "--socket", bundle_.daemonPath(),
                                 "--store", bundle_.folder() / "store", "--root", bundle_.folder() / "files"},
        bundle_.folder() / "errors");
    observer_->setProtocol(&KeldaneDaemonProtocol);
    observer_->setSocket(observerSocket_);
    ASSERT_TRUE(eventually([&] { return observerSocket_->connectToPath(bundle_.daemonPath()); }));
    observer_->setEnabled(0);  // nothing is backed up, so that a cycle's menu is always the same
    // The plug-in calls by a connection of its own, so its first command could be done before this is.
    ASSERT_EQ(observer_->daemonState()["statusString"], PropertyList("Backup is switched off"));
  }
  ~CycleFixture() override {
    observer_->close();
    observerSocket_->close();
  }

  /// Whether the daemon comes to show this state of the file. A command has no answer, and the next menu asks
  /// by another connection, so only this tells that it has come.
  bool becomes(const char* state) {
    return eventually([&] { return isShownAs(state); });
  }
  bool isShownAs(const char* state) {
    return observer_->dictionaryForPath(file_)["state"] == PropertyList(state);
  }
  /// A cycle in which nothing fails any more: its menu shows the file as it is, and its command is done.
  /// After it the file is not selected. The command is one that changes what is shown: another could still be
  /// under way when the next comes by a connection of its own, and undo that.
  void checkNextCycle(bool isSelected) {
    const Cycle next = cleanCycle(isSelected ? kCommandExclude : kCommandBackup);
    ASSERT_EQ(next.examined, kNoErr);
    ASSERT_EQ(next.menu, isSelected ? kSelected : kUnselected);
    ASSERT_TRUE(becomes(isSelected ? kNotSelected : kWaiting));
    observer_->removeFileFromBackup(file_);
    ASSERT_TRUE(becomes(kNotSelected));
  }
  static constexpr char kNotSelected[] = "Not selected for backup";
  static constexpr char kWaiting[] = "Waiting to be backed up";

  /// What the host keeps of one cycle.
  struct Cycle {
    bool made = false;  ///< whether there was an instance to ask
    OSStatus examined = kNoErr;
    std::optional<Titles> menu;
    std::optional<OSStatus> selected;  ///< nothing is chosen from a menu that is not there
  };

  /// From the making of an instance to its release. `during` runs what the plug-in does.
  template <class During>
  Cycle cycle(std::uint32_t command, const During& during) {
    Cycle result;
    Selection selection({file_});
    OwnedDescriptor commands;
    AECreateList(nullptr, 0, false, commands.get());
    void* instance =
        during([] { return KeldanePluginFactory(kCFAllocatorSystemDefault, contextualMenuTypeID()); });
    if (instance == nullptr) {
      return result;
    }
    const ContextualMenuInterfaceStruct& table =
        **static_cast<const ContextualMenuInterfaceStruct* const*>(instance);
    const CFUUIDBytes interfaceID = CFUUIDGetUUIDBytes(contextualMenuInterfaceID());
    LPVOID interface = nullptr;
    during([&] { return table.QueryInterface(instance, interfaceID, &interface); });
    result.made = interface != nullptr;
    if (result.made) {
      result.examined =
          during([&] { return table.ExamineContext(instance, selection.get(), commands.get()); });
      result.menu = titlesIn(commands);
      if (result.menu) {
        result.selected = during(
            [&] { return table.HandleSelection(instance, selection.get(), static_cast<SInt32>(command)); });
      }
      AEDisposeDesc(commands.get());
      during([&] {
        table.PostMenuCleanup(instance);
        return 0;
      });
      during([&] { return table.Release(instance); });
    }
    during([&] { return table.Release(instance); });
    return result;
  }
  Cycle cleanCycle(std::uint32_t command) {
    return cycle(command, [](const auto& work) { return work(); });
  }

  std::optional<Titles> titlesIn(const OwnedDescriptor& commands) {
    *commands_.get() = *commands.get();
    const std::optional<Menu> shown = menu();
    *commands_.get() = {typeNull, nullptr};
    if (!shown) {
      return std::nullopt;
    }
    Titles titles;
    for (const MenuItem& item : shown->items) {
      titles.push_back(item.title);
    }
    return titles;
  }

  /// The menu of the file while no rule is on it, and that of one that is to be backed up.
  static inline const Titles kUnselected = {
      "Status: Not selected for backup",       "-", "Back This Up",
      "Back Up This File As Soon As Possible", "-", "Open Keldane Preferences…"};
  static inline const Titles kSelected = {
      "Status: Waiting to be backed up",       "-", "Don't Back This Up",
      "Back Up This File As Soon As Possible", "-", "Open Keldane Preferences…"};

  std::string file_;
  std::unique_ptr<Program> program_;

 private:
  const std::shared_ptr<KeldaneSocket> observerSocket_ = KeldaneSocket::create();
  const std::shared_ptr<KeldaneProxy> observer_ = KeldaneProxy::create();
};

}  // namespace keldane::testing
