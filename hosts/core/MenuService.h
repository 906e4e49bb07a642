// Menus for a graphical host, whose window never waits long for them.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hosts/core/Menu.h"

namespace keldane {

/// What the plug-in offered for a selection. The host holds the pointer, which is a lease, for as long as the
/// items can be chosen. The menu cycle ends a moment after the last lease.
struct OfferedMenu {
  std::uint64_t number = 0;  ///< of the examination; grows
  std::vector<std::string> paths;
  std::vector<MenuItem> items;  ///< empty: there is nothing to show
};

/// Keeps the plug-in on a thread of its own, which is the plug-in's main thread and carries its run loop, and
/// asks it there. The plug-in's calls wait for the daemon without a limit, but the window's thread waits here
/// for a fixed time at most and then goes on without a menu. One examination runs at a time: of the
/// selections that are asked for meanwhile, the last is examined next and the others are dropped.
///
/// It is made and asked on the window's thread. When the service goes while its thread is stuck in the
/// plug-in, the thread is left behind and touches nothing of the host's any more.
class MenuService {
 public:
  using Patience = std::chrono::milliseconds;
  static constexpr Patience kUsualPatience{100};
  /// The milliseconds that KELDANE_MENU_PATIENCE in the environment names, 1 to 60,000; else the usual.
  static Patience configuredPatience();

  /// `bundle` empty: the first plug-in that is installed. It is loaded with the first menu.
  explicit MenuService(std::string bundle = {}, Patience patience = configuredPatience());
  ~MenuService();
  MenuService(const MenuService&) = delete;
  MenuService& operator=(const MenuService&) = delete;

  /// Called on the plug-in's thread whenever a menu is there for which `menuFor` did not wait long enough.
  void setLateListener(std::function<void()> listener);

  /// The menu for a selection of absolute paths: the one that is remembered for it, else a new one. Null when
  /// it does not come in time; null at once when the plug-in has been stuck for longer than that already.
  std::shared_ptr<const OfferedMenu> menuFor(const std::vector<std::string>& paths);
  /// The remembered menu, without asking the plug-in: null when there is none for this selection.
  std::shared_ptr<const OfferedMenu> rememberedMenuFor(const std::vector<std::string>& paths) const;
  /// Called once for each menu that is about to be shown: a remembered menu is out of date. A menu that came
  /// late is kept for the first opening within half a minute, so that a selection that takes longer than the
  /// patience gets its menu too.
  void forget();
  /// Carries out a command of a menu when the plug-in's thread is free, and ends the cycle. Only the first
  /// command of a menu is carried out.
  void choose(const OfferedMenu& menu, std::uint32_t command);

  /// What to show in place of a menu that does not come, in the user's language once the plug-in was loaded.
  std::string notRespondingTitle() const;

 private:
  class Worker;
  std::shared_ptr<Worker> worker_;
};

}  // namespace keldane
