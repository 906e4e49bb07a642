#include "clients/ctl/setup/SecretFile.h"

#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "clients/core/key/KeySheet.h"
#include "clients/core/key/NewSecretFile.h"
#include "clients/core/words/Printable.h"
#include "clients/ctl/Session.h"
#include "platform/files/FileContents.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

constexpr std::size_t kLongestSecret = 65536;

std::string reasonOf(int error) { return std::generic_category().message(error); }

bool isName(std::string_view text) {
  return !text.empty() &&
         text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_") ==
             std::string_view::npos;
}

}  // namespace

std::string readSecretFile(const std::string& path) {
  if (path == "-") {
    return {std::istreambuf_iterator<char>(std::cin), {}};
  }
  int error = 0;
  const std::optional<Bytes> bytes = readFile(path, &error);
  if (!bytes) {
    throw CommandFailure(kUsage,
                         filled(tr("The file %s cannot be read: %s."), printable(path), reasonOf(error)));
  }
  if (bytes->size() > kLongestSecret) {
    throw CommandFailure(kUsage,
                         filled(tr("The file %s is too large for what it should hold."), printable(path)));
  }
  return {bytes->begin(), bytes->end()};
}

std::string readKeyFile(const std::string& path) {
  KeyReading reading = readKey(readSecretFile(path));
  if (!reading.problem.empty()) {
    throw CommandFailure(kNotTaken, filled(tr("%s cannot be used. %s"),
                                           path == "-" ? tr("The key") : printable(path), reading.problem));
  }
  return std::move(reading.key);
}

void writeSecretFile(const std::string& path, std::string_view text) {
  if (const std::string problem = writeNewSecretFile(path, text); !problem.empty()) {
    throw CommandFailure(kNotTaken, problem);
  }
}

PropertyList::Entries environmentFrom(std::string_view text) {
  PropertyList::Entries entries;
  std::istringstream lines{std::string(text)};
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    std::string_view rest = line;
    if (rest.ends_with('\r')) {
      rest.remove_suffix(1);
    }
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t"), rest.size()));
    if (rest.empty() || rest.front() == '#') {
      continue;
    }
    constexpr std::string_view kExport = "export ";
    rest.remove_prefix(rest.starts_with(kExport) ? kExport.size() : 0);
    const std::size_t equals = std::min(rest.find('='), rest.size());
    std::string_view value = rest.substr(std::min(equals + 1, rest.size()));
    if (equals == rest.size() || !isName(rest.substr(0, equals))) {
      throw CommandFailure(
          kUsage, filled(tr("Line %s of the environment is not NAME=VALUE."), std::to_string(number)));
    }
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    entries.emplace_back(rest.substr(0, equals), value);
  }
  return entries;
}

}  // namespace keldane
