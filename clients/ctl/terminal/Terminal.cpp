#include "clients/ctl/terminal/Terminal.h"

#include <langinfo.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

// Both headers define many macros in the global name space, so only this file includes them.
#include <curses.h>
#include <term.h>

namespace keldane {

namespace {

constexpr int kUsualWidth = 80;

// Reads the description of the terminal, which also updates its size. The library needs a description at all
// times and keeps one.
bool describe() {
  int error = 0;
  if (cur_term != nullptr) {
    del_curterm(cur_term);
  }
  return setupterm(nullptr, STDOUT_FILENO, &error) == OK;
}

std::string capability(const char* name) {
  const char* text = tigetstr(name);
  return text == nullptr || text == reinterpret_cast<const char*>(-1) ? "" : text;
}

std::string foreground(int color) {
  const std::string format = capability("setaf");
  const char* text = format.empty() ? nullptr : tparm(format.c_str(), color, 0, 0, 0, 0, 0, 0, 0, 0);
  return text == nullptr ? "" : text;
}

}  // namespace

Terminal::Terminal() : isTerminal_(isatty(STDOUT_FILENO) != 0) {
  if (!isTerminal_ || !describe()) {
    return;
  }
  clearToEnd_ = capability("el");
  const char* noColor = std::getenv("NO_COLOR");
  hasColors_ = (noColor == nullptr || *noColor == '\0') && tigetnum("colors") >= 8;
  if (hasColors_) {
    boldOn_ = capability("bold");
    attributesOff_ = capability("sgr0");
    colorOn_[static_cast<int>(Color::red)] = foreground(COLOR_RED);
    colorOn_[static_cast<int>(Color::green)] = foreground(COLOR_GREEN);
    colorOn_[static_cast<int>(Color::yellow)] = foreground(COLOR_YELLOW);
    colorOn_[static_cast<int>(Color::blue)] = foreground(COLOR_BLUE);
    colorOn_[static_cast<int>(Color::gray)] = capability("dim");
  }
}

int Terminal::width() const {
  const int now = isTerminal_ && describe() ? tigetnum("cols") : kUsualWidth;
  return now > 0 ? now : kUsualWidth;
}

std::string Terminal::colored(Color color, const std::string& text) const {
  const std::string& on = colorOn_[static_cast<int>(color)];
  return on.empty() || text.empty() ? text : on + text + attributesOff_;
}

std::string Terminal::bold(const std::string& text) const {
  return boldOn_.empty() ? text : boldOn_ + text + attributesOff_;
}

std::string Terminal::restartLine() const { return clearToEnd_.empty() ? "\n" : "\r" + clearToEnd_; }

bool Terminal::hasBoxes() { return std::string_view(nl_langinfo(CODESET)) == "UTF-8"; }

}  // namespace keldane
