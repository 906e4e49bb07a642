#include "hosts/core/MenuService.h"

#include <charconv>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "hosts/core/MenuWorker.h"

namespace keldane {

MenuService::Patience MenuService::configuredPatience() {
  const char* text = std::getenv("KELDANE_MENU_PATIENCE");
  const std::string_view digits = text == nullptr ? "" : text;
  int milliseconds = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), milliseconds);
  const bool isMeant = error == std::errc() && end == digits.data() + digits.size() && milliseconds >= 1 &&
                       milliseconds <= 60000;
  return isMeant ? Patience(milliseconds) : kUsualPatience;
}

MenuService::MenuService(std::string bundle, Patience patience)
    : worker_(std::make_shared<Worker>(std::move(bundle), patience)) {
  worker_->start();
}

MenuService::~MenuService() { worker_->end(); }

void MenuService::setLateListener(std::function<void()> listener) {
  worker_->setListener(std::move(listener));
}

std::shared_ptr<const OfferedMenu> MenuService::menuFor(const std::vector<std::string>& paths) {
  return worker_->ask(paths);
}

std::shared_ptr<const OfferedMenu> MenuService::rememberedMenuFor(
    const std::vector<std::string>& paths) const {
  return worker_->remembered(paths);
}

void MenuService::forget() { worker_->forget(); }

void MenuService::choose(const OfferedMenu& menu, std::uint32_t command) { worker_->choose(menu, command); }

std::string MenuService::notRespondingTitle() const { return worker_->notRespondingTitle(); }

}  // namespace keldane
