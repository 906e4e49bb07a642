// Whole menu cycles of the plug-in, through its function table, against a daemon in another process. So all
// threads, descriptors and memory of the test's process belong to the plug-in.
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

/// The distance between the steps of a sweep: 1 in a quick build, more where each step is slow;
/// KELDANE_FAULT_STRIDE overrides it.
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
    observer_->setEnabled(0);  // nothing is backed up, so that every cycle's menu is the same
    // The plug-in calls over another connection, so its first command could otherwise overtake this setting.
    ASSERT_EQ(observer_->daemonState()["statusString"], PropertyList("Backup is switched off"));
  }
  ~CycleFixture() override {
    observer_->close();
    observerSocket_->close();
  }

  /// Whether the daemon reaches this state for the file. A command has no answer and the next menu uses
  /// another connection, so only this shows that the command has arrived.
  bool becomes(const char* state) {
    return eventually([&] { return isShownAs(state); });
  }
  bool isShownAs(const char* state) {
    return observer_->dictionaryForPath(file_)["state"] == PropertyList(state);
  }
  /// Runs a cycle without failures: its menu shows the file's state, and its command is carried out.
  /// Afterwards the file is not selected. The command changes the shown state; otherwise it could still be
  /// under way when the next one comes over another connection, and undo that.
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

  /// The results of one cycle in the host.
  struct Cycle {
    bool made = false;  ///< whether there was an instance
    OSStatus examined = kNoErr;
    std::optional<Titles> menu;
    std::optional<OSStatus> selected;  ///< absent when there was no menu to choose from
  };

  /// Runs a cycle from the making of an instance to its release. `during` wraps the plug-in's work.
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

  /// The menu of a file without a rule, and that of a file that is to be backed up.
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
