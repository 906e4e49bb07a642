#include <iostream>

#include "clients/core/key/KeySheet.h"
#include "clients/core/key/QrCode.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/OwnerSession.h"
#include "clients/ctl/commands/Commands.h"
#include "clients/ctl/setup/SecretFile.h"
#include "clients/ctl/terminal/Secret.h"
#include "clients/ctl/terminal/Terminal.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kShortestPassphrase = 12;

void exportKey(const Globals& globals, const std::string& file) {
  OwnerSession session(globals);
  const std::string key(session.ask("exportKey:")["key"].string());
  if (key.empty()) {
    throw CommandFailure(kNotTaken, tr("The daemon has no key yet."));
  }
  writeSecretFile(file, key + "\n");
  std::cout
      << filled(tr("The key is in %s. Whoever has it can read the backup: keep it apart from this computer."),
                printable(file))
      << '\n';
}

void importKey(const Globals& globals, const std::string& file) {
  const std::string key = readKeyFile(file);
  OwnerSession session(globals);
  session.askForLong("importKey:", {{"key", key}});
  std::cout << tr("The key opens the repository and is kept from now on.") << '\n';
}

/// The lines of the code, dark on light whatever the terminal's own colours are, because not every camera
/// reads a code of light on dark.
std::vector<std::string> codeFor(const Terminal& terminal, const std::string& key) {
  std::vector<std::string> lines = QrCode(key).lines(Terminal::hasBoxes());
  if (terminal.isTerminal()) {
    for (std::string& line : lines) {
      line.insert(0, "\x1b[30;107m").append("\x1b[0m");
    }
  }
  return lines;
}

void makeSheet(const Globals& globals, const std::string& file) {
  const bool isPicture = file.ends_with(".svg");
  if (!isPicture && file != "-" && !file.ends_with(".txt")) {
    throw CommandFailure(kUsage, tr("A sheet is written to a file that ends in .svg or .txt, or to \"-\"."));
  }
  OwnerSession session(globals);
  const KeySheet sheet = keySheetFrom(session.ask("exportKey:"));
  if (sheet.key.empty()) {
    throw CommandFailure(kNotTaken, tr("The daemon has no key yet."));
  }
  if (file == "-") {
    std::cout << keySheetText(sheet, codeFor(Terminal(), sheet.key));
    return;
  }
  writeSecretFile(file, isPicture ? keySheetSvg(sheet) : keySheetText(sheet, QrCode(sheet.key).lines(true)));
  std::cout << filled(tr("The sheet is in %s. Print it and delete the file."), printable(file)) << '\n';
}

void verifyKey(const Globals& globals, const std::string& file) {
  if (file == "-" && isSomebodyThere()) {
    std::cout << tr("Type the key from the sheet, with its check group; then Enter and Ctrl-D:") << std::endl;
  }
  const std::string key = readKeyFile(file);
  OwnerSession session(globals);
  if (!session.askForLong("verifyKey:", {{"key", key}})["matches"].boolValue()) {
    throw CommandFailure(kNotTaken, tr("This key does not open the repository."));
  }
  std::cout << tr("This key opens the repository.") << '\n';
}

std::string newPassphrase(const std::string& file) {
  if (!file.empty()) {
    const std::string text = readSecretFile(file);
    return text.substr(0, text.find_first_of("\r\n"));
  }
  std::string passphrase = askSecret(tr("New passphrase:"));
  if (askSecret(tr("Once more:")) != passphrase) {
    throw CommandFailure(kNotTaken, tr("The two are not the same; nothing was changed."));
  }
  return passphrase;
}

void addPassphrase(const Globals& globals, const std::string& file) {
  OwnerSession session(globals);
  const std::string passphrase = newPassphrase(file);
  if (passphrase.size() < kShortestPassphrase) {
    throw CommandFailure(
        kNotTaken, tr("A passphrase has at least 12 characters: who gets at the repository can try many."));
  }
  // The storage program reads it from a file, whose blanks and line ends it drops.
  if (passphrase.find_first_of(" \t") == 0 || passphrase.find_last_of(" \t") == passphrase.size() - 1) {
    throw CommandFailure(kNotTaken, tr("A passphrase neither begins nor ends with a blank."));
  }
  session.askForLong("addPassphrase:", {{"passphrase", passphrase}});
  std::cout << tr("The passphrase opens the repository too.") << '\n';
}

void changeKey(const Globals& globals) {
  OwnerSession(globals).askForLong("changeKey:", {});
  std::cout << tr("A new key opens the repository, and the former one no longer does. Make new copies of it.")
            << '\n';
}

}  // namespace

void addKeyCommands(CLI::App& app, Globals& globals) {
  CLI::App* key =
      app.add_subcommand("key", tr("Save, print and try the key, without which the backup cannot be read"));
  key->require_subcommand(1);
  auto file = std::make_shared<std::string>();

  CLI::App* command = key->add_subcommand("export", tr("Write the key to a new file"));
  command->add_option("FILE", *file, tr("The file, which must not be there yet"))->required();
  command->callback([&globals, file] { exportKey(globals, *file); });

  command = key->add_subcommand("import", tr("Give the daemon a key that opens the repository"));
  command->add_option("FILE", *file, tr("A file with the key, a saved sheet, or \"-\""))->required();
  command->callback([&globals, file] { importKey(globals, *file); });

  command =
      key->add_subcommand("sheet", tr("Make a page to print: the key, its code, and how to restore with it"));
  auto sheet = std::make_shared<std::string>("-");
  command->add_option(
      "FILE", *sheet,
      tr("A new file that ends in .svg (A4) or .txt; \"-\" to show it (unless told otherwise)"));
  command->callback([&globals, sheet] { makeSheet(globals, *sheet); });

  command = key->add_subcommand("verify", tr("Try a key that was typed, scanned or saved"));
  command->add_option("FILE", *file, tr("A file, or \"-\" for what is typed"))->required();
  command->callback([&globals, file] { verifyKey(globals, *file); });

  command = key->add_subcommand("passphrase",
                                tr("Add a passphrase that opens the repository too, after asking for it"));
  auto from = std::make_shared<std::string>();
  command->add_option("--from", *from, tr("Take it from the first line of this file instead"))
      ->type_name("FILE");
  command->callback([&globals, from] { addPassphrase(globals, *from); });

  command = key->add_subcommand("change", tr("Make a new key and take the present one out of use"));
  command->footer(
      tr("What is stored is not encrypted anew: who has the present key and a copy of the repository made so "
         "far "
         "can still read that copy."));
  command->callback([&globals] { changeKey(globals); });
}

}  // namespace keldane
