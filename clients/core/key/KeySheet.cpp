#include "clients/core/key/KeySheet.h"

#include <algorithm>
#include <ctime>
#include <sstream>

#include "clients/core/words/Units.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::string_view kBase32 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
constexpr std::size_t kKeyLength = 52, kGroupLength = 4, kGroupsALine = 4;
constexpr const char* kKeyHeading = marked("The key");
constexpr const char* kCheckHeading = marked("The check group");
// The label at the start of a line of the sheet takes this many columns.
constexpr std::size_t kLabelColumns = 12;
// Text with this many letters was meant to be a key that the daemon generated.
constexpr std::size_t kFewestLetters = 40, kMostLetters = 70;

std::uint32_t crc32Of(std::string_view text) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : text) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return ~crc;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

/// The base32 characters of a typed text; empty when it holds anything other than these, blanks and hyphens.
std::string lettersIn(std::string_view text) {
  std::string letters;
  for (const char c : text) {
    if (std::string_view(" \t\r\n-").find(c) != std::string_view::npos) {
      continue;
    }
    const char capital = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    const char letter = capital == '0' ? 'O' : capital == '1' ? 'I' : capital == '8' ? 'B' : capital;
    if (kBase32.find(letter) == std::string_view::npos) {
      return {};
    }
    letters += letter;
  }
  return letters;
}

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(trimmed(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

KeyReading withCheck(const std::string& key, const std::string& check) {
  if (keyCheckGroup(key) != check) {
    return {{}, tr("The check group does not fit the key: a letter was misread.")};
  }
  return {key, {}};
}

/// The heading, and its translation in parentheses in other languages, so that a sheet can be read in any
/// language.
std::string translatedHeading(const char* heading) {
  const std::string text = tr(heading);
  return text == heading ? text : std::string(heading) + " (" + text + ")";
}

auto isHeading(std::string_view heading) {
  return [heading](std::string_view line) {
    return line.starts_with(heading) &&
           (line.size() == heading.size() || line.substr(heading.size()).starts_with(" ("));
  };
}

/// Reads a sheet: the key is in the lines between the two headings, and the check group is in the line after
/// the second one.
KeyReading readSheet(const std::vector<std::string_view>& lines) {
  auto line = std::find_if(lines.begin(), lines.end(), isHeading(kKeyHeading));
  const auto heading = std::find_if(line, lines.end(), isHeading(kCheckHeading));
  std::string text;
  while (++line < heading) {
    text.append(text.empty() || line->empty() ? "" : " ").append(*line);
  }
  const auto check = std::find_if(heading == lines.end() ? heading : heading + 1, lines.end(),
                                  [](std::string_view each) { return !each.empty(); });
  if (check == lines.end()) {
    return {{}, tr("The sheet has no check group.")};
  }
  const std::string letters = lettersIn(text);
  return withCheck(isMadeKey(letters) ? letters : text, lettersIn(*check));
}

}  // namespace

KeySheet keySheetFrom(const PropertyList& answer) {
  KeySheet sheet;
  sheet.key = answer["key"].string();
  sheet.location = answer["location"].string();
  sheet.repositoryId = answer["repositoryId"].string();
  sheet.hostName = answer["hostName"].string();
  sheet.computerNumber = answer["computerNumber"].unsignedIntValue();
  sheet.date = dateText(Date::fromUnixTime(static_cast<double>(std::time(nullptr))));
  return sheet;
}

bool isMadeKey(std::string_view key) {
  return key.size() == kKeyLength && key.find_first_not_of(kBase32) == std::string_view::npos;
}

std::vector<std::string> keyGroups(std::string_view key) {
  if (!isMadeKey(key)) {
    return {std::string(key)};
  }
  std::vector<std::string> groups;
  for (std::size_t at = 0; at < key.size(); at += kGroupLength) {
    groups.emplace_back(key.substr(at, kGroupLength));
  }
  return groups;
}

std::string keyCheckGroup(std::string_view key) {
  std::string group;
  std::uint32_t bits = crc32Of(key);
  for (std::size_t i = 0; i < kGroupLength; ++i, bits <<= 5) {
    group += kBase32[bits >> 27];
  }
  return group;
}

std::vector<RestoreStep> restoreSteps(const KeySheet& sheet) {
  std::string quoted = "'";
  for (const char c : sheet.location) {
    quoted += c == '\'' ? "'\\''" : std::string(1, c);
  }
  quoted += "'";
  return {{tr("Install the storage program (Debian, Ubuntu; for others see restic.net):"),
           "sudo apt install restic"},
          {isMadeKey(sheet.key)
               ? tr("Type the key, its 52 letters and digits without blanks; then Enter and Ctrl-D:")
               : tr("Type the key exactly as it stands; then Enter and Ctrl-D:"),
           "cat > key.txt"},
          {tr("Say where the backup is:"), "export RESTIC_PASSWORD_FILE=key.txt RESTIC_REPOSITORY=" + quoted},
          {tr("See which states there are, and in which of them a file is:"),
           "restic snapshots; restic find 'letter.txt'"},
          {tr("Fetch one of them by its ID:"), "restic restore ID --target restored"}};
}

std::vector<std::string> keySheetFacts(const KeySheet& sheet) {
  const auto fact = [](const char* label, const std::string& value) {
    const std::string name = tr(label);
    const auto columns = static_cast<std::size_t>(std::count_if(
        name.begin(), name.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
    return name + std::string(columns < kLabelColumns ? kLabelColumns - columns : 1, ' ') + value;
  };
  return {fact(marked("Place"), sheet.location), fact(marked("Repository"), sheet.repositoryId),
          fact(marked("Computer"), std::to_string(sheet.computerNumber) +
                                       (sheet.hostName.empty() ? "" : " (" + sheet.hostName + ")")),
          fact(marked("Printed"), sheet.date)};
}

std::string keySheetText(const KeySheet& sheet, const std::vector<std::string>& code) {
  std::ostringstream text;
  text << tr("KELDANE: THE KEY OF YOUR BACKUP") << "\n\n"
       << tr("Whoever has this key can read the backup, and without it nobody can, you neither.") << '\n'
       << tr("Keep this sheet where neither fire nor thieves get it together with the computer.") << "\n\n";
  for (const std::string& fact : keySheetFacts(sheet)) {
    text << fact << '\n';
  }
  text << '\n' << translatedHeading(kKeyHeading) << '\n';
  const std::vector<std::string> groups = keyGroups(sheet.key);
  for (std::size_t i = 0; i < groups.size(); ++i) {
    text << (i % kGroupsALine == 0 ? "    " : " ") << groups[i]
         << (i % kGroupsALine == kGroupsALine - 1 || i + 1 == groups.size() ? "\n" : "");
  }
  text << translatedHeading(kCheckHeading) << "\n    " << keyCheckGroup(sheet.key) << "\n\n";
  for (const std::string& line : code) {
    text << line << '\n';
  }
  text << '\n'
       << tr("On a computer with Keldane:") << "\n\n    " << kRecoverCommand << "\n\n"
       << tr("On any other one (a server may want a user name and a password too):") << "\n\n";
  std::size_t number = 0;
  for (const RestoreStep& step : restoreSteps(sheet)) {
    text << ++number << ". " << step.purpose << "\n    " << step.command << '\n';
  }
  return text.str();
}

KeyReading readKey(std::string_view text) {
  const std::string_view content = trimmed(text);
  if (content.empty()) {
    return {{}, tr("There is no key in it.")};
  }
  if (content.starts_with('<')) {
    return {{}, tr("It is a picture: type the letters that stand in it, or scan its code.")};
  }
  const std::vector<std::string_view> lines = linesOf(content);
  if (std::any_of(lines.begin(), lines.end(), isHeading(kKeyHeading))) {
    return readSheet(lines);
  }
  const std::string letters = lettersIn(content);
  if (letters.size() == kKeyLength + kGroupLength) {
    return withCheck(letters.substr(0, kKeyLength), letters.substr(kKeyLength));
  }
  if (letters.size() == kKeyLength) {
    return {letters, {}};
  }
  if (letters.size() >= kFewestLetters && letters.size() <= kMostLetters) {
    return {{},
            filled(tr("The key has 52 letters and digits, and 4 more with the check group; here are %s."),
                   countText(letters.size()))};
  }
  if (lines.size() > 1) {
    return {{}, tr("It is neither a key nor a sheet.")};
  }
  return {std::string(content), {}};
}

}  // namespace keldane
