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

/// The menu that the plug-in offered for a selection. The host holds the pointer, which is a lease, for as
/// long as the items can be chosen. The menu cycle ends a moment after the last lease.
struct OfferedMenu {
  std::uint64_t number = 0;  ///< number of the examination; newer ones are larger
  std::vector<std::string> paths;
  std::vector<MenuItem> items;  ///< empty when there is nothing to show
};

/// Runs the plug-in on a thread of its own. This thread is the plug-in's main thread and carries its run
/// loop. The plug-in's calls wait for the daemon without a limit, but the window's thread waits here for a
/// fixed time at most and then goes on without a menu. One examination runs at a time. Of the selections that
/// are asked for meanwhile, only the last is examined next; the others are dropped.
///
/// The service is made and called on the window's thread. When it is destroyed while its own thread is stuck
/// in the plug-in, that thread is left behind and no longer touches anything of the host.
class MenuService {
 public:
  using Patience = std::chrono::milliseconds;
  static constexpr Patience kUsualPatience{100};
  /// The milliseconds (1 to 60,000) in the environment variable KELDANE_MENU_PATIENCE, or else the usual
  /// patience.
  static Patience configuredPatience();

  /// An empty `bundle` stands for the first plug-in that is installed. The plug-in is loaded with the first
  /// menu.
  explicit MenuService(std::string bundle = {}, Patience patience = configuredPatience());
  ~MenuService();
  MenuService(const MenuService&) = delete;
  MenuService& operator=(const MenuService&) = delete;

  /// The listener is called on the plug-in's thread when a menu has come for which `menuFor` did not wait
  /// long enough. It must neither set another listener nor wait for the thread that does. Returns after a
  /// call of the former listener that is under way; the destructor does so too.
  void setLateListener(std::function<void()> listener);

  /// The menu for a selection of absolute paths: the remembered one, or else a new one. Null when it does not
  /// come in time. Null at once when the plug-in has already been stuck for longer than the patience.
  std::shared_ptr<const OfferedMenu> menuFor(const std::vector<std::string>& paths);
  /// The remembered menu, without asking the plug-in. Null when there is none for this selection.
  std::shared_ptr<const OfferedMenu> rememberedMenuFor(const std::vector<std::string>& paths) const;
  /// To be called once for each menu that is about to be shown. Drops the remembered menu, because it is out
  /// of date. A menu that came late is kept for the first opening within half a minute, so that a selection
  /// that takes longer than the patience gets its menu too.
  void forget();
  /// Carries out a command of a menu when the plug-in's thread is free, and ends the cycle. Only the first
  /// command of a menu is carried out.
  void choose(const OfferedMenu& menu, std::uint32_t command);

  /// The title to show when a menu does not come. It is in the user's language once the plug-in has been
  /// loaded.
  std::string notRespondingTitle() const;

 private:
  class Worker;
  std::shared_ptr<Worker> worker_;
};

}  // namespace keldane
