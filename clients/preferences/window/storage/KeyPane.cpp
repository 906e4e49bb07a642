#include "clients/preferences/window/storage/KeyPane.h"

#include <gtkmm/window.h>

#include "clients/core/key/NewSecretFile.h"
#include "clients/core/key/QrCode.h"
#include "clients/core/words/Printable.h"
#include "clients/preferences/window/Widgets.h"
#include "clients/preferences/window/storage/KeyRing.h"
#include "clients/preferences/window/storage/SheetPrinter.h"
#include "clients/preferences/words/Translation.h"

namespace keldane {

KeyPane::KeyPane(DaemonDesk& desk, std::function<void()> kept)
    : Gtk::Box(Gtk::Orientation::VERTICAL, kGap),
      desk_(desk),
      kept_(std::move(kept)),
      keyChooser_(tr("Save the Key"), Gtk::FileChooser::Action::SAVE,
                  [this](const std::string& path) {
                    keyFile_ = path;
                    with(&KeyPane::saveKey);
                  }),
      sheetChooser_(tr("Save the Sheet"), Gtk::FileChooser::Action::SAVE,
                    [this](const std::string& path) {
                      sheetFile_ = path;
                      with(&KeyPane::saveSheet);
                    }),
      show_(tr("Show the Key")),
      saveKey_(tr("Save the Key…")),
      saveSheet_(tr("Save the Sheet…")),
      print_(tr("Print the Sheet…")),
      keyRing_(tr("Copy to the Key Ring")) {
  makeParagraph(key_);
  key_.add_css_class("monospace");
  key_.set_selectable(true);
  key_.set_visible(false);
  makeParagraph(said_);
  said_.set_visible(false);
  buttons_.set_selection_mode(Gtk::SelectionMode::NONE);
  buttons_.set_column_spacing(kGap);
  buttons_.set_row_spacing(kGap);
  buttons_.set_max_children_per_line(5);
  append(key_);
  append(buttons_);
  append(said_);
  addButton(show_, [this] { key_.get_visible() ? hideKey() : reveal(); });
  addButton(saveKey_, [this] { keyChooser_.open(*this, "keldane-key.txt"); });
  addButton(saveSheet_, [this] { sheetChooser_.open(*this, "keldane-key-sheet.svg"); });
  addButton(print_, [this] { with(&KeyPane::print); });
  addButton(keyRing_, [this] { with(&KeyPane::keepInKeyRing); });
}

void KeyPane::addButton(Gtk::Button& button, const std::function<void()>& clicked) {
  button.signal_clicked().connect(clicked);
  buttons_.append(button);
}

void KeyPane::say(const std::string& sentence) {
  said_.set_text(sentence);
  said_.set_visible(!sentence.empty());
}

void KeyPane::with(Use use) {
  desk_.ask("exportKey:", {}, [this, use](const OwnerAnswer& answer) {
    if (!answer) {
      say(problemOf(answer));
    } else if (const KeySheet sheet = keySheetFrom(answer.values); sheet.key.empty()) {
      say(tr("The daemon has no key yet."));
    } else {
      (this->*use)(sheet);
    }
  });
}

void KeyPane::reveal() { with(&KeyPane::showKey); }

void KeyPane::hideKey() {
  key_.set_text({});
  key_.set_visible(false);
  show_.set_label(tr("Show the Key"));
}

void KeyPane::showKey(const KeySheet& sheet) {
  std::string text;
  for (const std::string& group : keyGroups(sheet.key)) {
    text += (text.empty() ? "" : " ") + group;
  }
  key_.set_text(text);
  key_.set_visible(true);
  show_.set_label(tr("Hide the Key"));
}

void KeyPane::write(const std::string& path, const std::string& text, const char* done) {
  desk_.aside([this, path, text, done]() -> std::function<void()> {
    const std::string problem = writeNewSecretFile(path, text);
    return [this, path, done, problem] {
      say(problem.empty() ? filled(done, printable(path)) : problem);
      if (problem.empty()) {
        kept_();
      }
    };
  });
}

void KeyPane::saveKey(const KeySheet& sheet) {
  write(keyFile_, sheet.key + "\n",
        tr("The key is in %s. Whoever has it can read the backup: keep it apart from this computer."));
}

void KeyPane::saveSheet(const KeySheet& sheet) {
  const bool isText = sheetFile_.ends_with(".txt");
  write(sheetFile_, isText ? keySheetText(sheet, QrCode(sheet.key).lines(true)) : keySheetSvg(sheet),
        tr("The sheet is in %s. Print it and delete the file."));
}

void KeyPane::print(const KeySheet& sheet) {
  bool printed = false;
  const std::string problem = printKeySheet(dynamic_cast<Gtk::Window&>(*get_root()), sheet, printed);
  say(problem.empty() ? printed ? tr("The sheet goes to the printer. Keep it apart from this computer.") : ""
                      : filled(tr("The sheet could not be printed: %s"), problem));
  if (printed) {
    kept_();
  }
}

void KeyPane::keepInKeyRing(const KeySheet& sheet) {
  storeInKeyRing(
      sheet.key, sheet.repositoryId, tr("Key of the Keldane backup"), [this](const std::string& problem) {
        say(problem.empty()
                ? tr("The key is in the key ring. That lies on this computer and goes with it: keep "
                     "another copy elsewhere.")
                : filled(tr("The key ring did not take the key: %s"), problem));
        if (problem.empty()) {
          kept_();
        }
      });
}

}  // namespace keldane
