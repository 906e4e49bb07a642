// The printed page with which the backup can be restored when everything else is lost.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// The content of the page. All of it is secret, because the key is.
struct KeySheet {
  std::string key;
  std::string location;  ///< in the storage program's format
  std::string repositoryId;
  std::string hostName;
  std::uint32_t computerNumber = 0;
  std::string date;  ///< when it was made, as text
};

/// Today's sheet, from the daemon's answer to exportKey:. The key is empty when the daemon has none yet.
KeySheet keySheetFrom(const PropertyList& answer);

/// Whether the daemon generated this key: 52 characters of base32. Any other key is text that somebody chose.
bool isMadeKey(std::string_view key);
/// A generated key in groups of 4, which are easy to type; any other key as a single group.
std::vector<std::string> keyGroups(std::string_view key);
/// Four check characters; another key has the same ones with a chance of one in a million.
std::string keyCheckGroup(std::string_view key);

/// A step of a restore without this system: its purpose, and the command to type.
struct RestoreStep {
  std::string purpose, command;
};
std::vector<RestoreStep> restoreSteps(const KeySheet& sheet);
/// One line each for the place, the repository, the computer, and the date of the sheet.
std::vector<std::string> keySheetFacts(const KeySheet& sheet);
/// The command for a computer that has this system.
inline constexpr char kRecoverCommand[] = "keldanectl recover PLACE --key FILE-WITH-THE-KEY";

/// The sheet as text, in the user's language. `code` holds the lines of the key's QR code, which are inserted
/// unchanged.
std::string keySheetText(const KeySheet& sheet, const std::vector<std::string>& code);
/// The sheet as an SVG picture of the size A4.
std::string keySheetSvg(const KeySheet& sheet);

/// The result of reading text that a person has typed, scanned, or saved.
struct KeyReading {
  std::string key;      ///< empty when there is a problem
  std::string problem;  ///< a sentence
};
/// Reads a whole sheet as text, groups with or without the check group, a scanned code, or a file with only
/// the key. Blanks, hyphens and small letters in groups are accepted; digits that base32 lacks are read as
/// the letters that they resemble.
KeyReading readKey(std::string_view text);

}  // namespace keldane
