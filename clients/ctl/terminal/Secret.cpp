#include "clients/ctl/terminal/Secret.h"

#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "clients/ctl/Session.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

termios settingsBefore;  // for the signal handler, which must make the terminal show typed text again

extern "C" void restoreTerminalAndProcess(int number) {
  tcsetattr(STDIN_FILENO, TCSANOW, &settingsBefore);
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "\n", 1);
  std::signal(number, SIG_DFL);
  std::raise(number);
}

/// While an object lives, the terminal does not show typed text.
class EchoOff {
 public:
  EchoOff() {
    if (tcgetattr(STDIN_FILENO, &settingsBefore) != 0) {
      return;
    }
    for (std::size_t i = 0; i < std::size(kSignals); ++i) {
      handlersBefore_[i] = std::signal(kSignals[i], restoreTerminalAndProcess);
    }
    termios settings = settingsBefore;
    settings.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    isOff_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &settings) == 0;
  }
  ~EchoOff() {
    if (isOff_) {
      tcsetattr(STDIN_FILENO, TCSANOW, &settingsBefore);
      for (std::size_t i = 0; i < std::size(kSignals); ++i) {
        std::signal(kSignals[i], handlersBefore_[i]);
      }
    }
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;
  bool isOff() const { return isOff_; }

 private:
  static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  void (*handlersBefore_[std::size(kSignals)])(int) = {};
  bool isOff_ = false;
};

void requireSomebody() {
  if (!isSomebodyThere()) {
    throw CommandFailure(kUsage, tr("Nobody is there to be asked; --help tells how to say it beforehand."));
  }
}

std::string typedLine() {
  std::string line;
  if (!std::getline(std::cin, line)) {
    throw CommandFailure(kNotTaken, tr("Nothing was done: the input has ended."));
  }
  return line;
}

}  // namespace

bool isSomebodyThere() { return isatty(STDIN_FILENO) != 0; }

std::string askLine(const std::string& question) {
  requireSomebody();
  std::cout << question << ' ' << std::flush;
  const std::string line = typedLine();
  const std::size_t first = line.find_first_not_of(" \t\r");
  return first == std::string::npos ? std::string()
                                    : line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
}

std::string askSecret(const std::string& question) {
  requireSomebody();
  const EchoOff hidden;
  if (!hidden.isOff()) {
    throw CommandFailure(kNotTaken, tr("This terminal cannot hide what is typed."));
  }
  std::cout << question << ' ' << std::flush;
  std::string line = typedLine();
  std::cout << '\n';
  return line;
}

bool askWhether(const std::string& question, bool otherwise) {
  const std::string answer = askLine(question + ' ' + (otherwise ? tr("[Y/n]") : tr("[y/N]")));
  if (answer.empty()) {
    return otherwise;
  }
  // English answers are understood in every language.
  for (const char* yes : {"y", "Y", "yes", tr("y"), tr("Y"), tr("yes")}) {
    if (answer == yes) {
      return true;
    }
  }
  return false;
}

}  // namespace keldane
