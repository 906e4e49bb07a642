// The page to print that gives the backup back when everything else is lost.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// What stands on the page. All of it is secret, because the key is.
struct KeySheet {
  std::string key;
  std::string location;  ///< as the storage program takes it
  std::string repositoryId;
  std::string hostName;
  std::uint32_t computerNumber = 0;
  std::string date;  ///< when it was made, as text
};

/// A sheet of today from the daemon's answer to exportKey:. The key is empty when the daemon has none yet.
KeySheet keySheetFrom(const PropertyList& answer);

/// A key of the daemon's own making: 52 characters of base32. Any other one is some text that somebody chose.
bool isMadeKey(std::string_view key);
/// Such a key in groups of 4 that can be typed; any other one as a single group.
std::vector<std::string> keyGroups(std::string_view key);
/// Four more characters, which fit no other key but by a chance of one in a million.
std::string keyCheckGroup(std::string_view key);

/// A step of a restore without this system: what it is for, and what to type.
struct RestoreStep {
  std::string purpose, command;
};
std::vector<RestoreStep> restoreSteps(const KeySheet& sheet);
/// A line each: the place, the repository, the computer, and when the sheet was made.
std::vector<std::string> keySheetFacts(const KeySheet& sheet);
/// What to type on a computer that has this system.
inline constexpr char kRecoverCommand[] = "keldanectl recover PLACE --key FILE-WITH-THE-KEY";

/// As text, in the user's language. `code` are the lines of the key's QR code, which stand in it as they are.
std::string keySheetText(const KeySheet& sheet, const std::vector<std::string>& code);
/// As a picture of the size A4, in SVG.
std::string keySheetSvg(const KeySheet& sheet);

/// What a person has typed, scanned, or saved of a sheet.
struct KeyReading {
  std::string key;      ///< empty when there is a problem
  std::string problem;  ///< a sentence
};
/// Reads a whole sheet as text, groups with or without the check group, a scanned code, or a file with
/// nothing but the key. Blanks, hyphens and small letters in groups do not matter, and digits that base32
/// lacks are taken for the letters that they look like.
KeyReading readKey(std::string_view text);

}  // namespace keldane
