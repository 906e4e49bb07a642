#include "daemon/engine/RepositoryConfig.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "daemon/engine/Base32.h"
#include "daemon/engine/DurableFile.h"

namespace keldane {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

bool beginsOrEndsBlank(const std::string& text) {
  return !text.empty() && (kBlanks.find(text.front()) != std::string_view::npos ||
                           kBlanks.find(text.back()) != std::string_view::npos);
}

bool isAllowedName(std::string_view name) {
  static constexpr std::array<std::string_view, 8> kPrefixes = {"AWS_", "B2_", "AZURE_",  "GOOGLE_",
                                                                "OS_",  "ST_", "RCLONE_", "RESTIC_REST_"};
  static constexpr std::array<std::string_view, 6> kNames = {"RESTIC_CACERT", "SSH_AUTH_SOCK", "HTTPS_PROXY",
                                                             "HTTP_PROXY",    "NO_PROXY",      "ALL_PROXY"};
  return name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_") == std::string_view::npos &&
         (std::ranges::find(kNames, name) != kNames.end() ||
          std::ranges::any_of(kPrefixes, [&](std::string_view prefix) { return name.starts_with(prefix); }));
}

void demandAllowedName(const std::string& name) {
  if (!isAllowedName(name)) {
    throw std::runtime_error("The storage program's environment cannot have the name " + name + ".");
  }
}

/// Removes "user:password@" from the part of a location that names a server.
std::string withoutUser(const std::string& location, std::size_t begin, std::size_t end) {
  const std::size_t at = location.substr(begin, end - begin).rfind('@');
  return at == std::string::npos ? location : location.substr(0, begin) + location.substr(begin + at + 1);
}

/// A remote of rclone can carry its settings, passwords included: "rclone:remote,option=value:path".
std::string withoutRcloneSettings(const std::string& location) {
  const std::size_t comma = location.find(',');
  const std::size_t path = location.rfind(':');
  if (comma == std::string::npos) {
    return location;
  }
  return location.substr(0, comma) + (path != std::string::npos && path > comma ? location.substr(path) : "");
}

}  // namespace

bool isKeyText(const std::string& text) {
  return !text.empty() && !beginsOrEndsBlank(text) &&
         text.find_first_of(std::string_view("\r\n\0", 3)) == std::string::npos;
}

std::string RepositoryConfig::publicLocation() const {
  if (localFolder()) {
    return location;
  }
  if (location.starts_with("rclone:")) {
    return withoutRcloneSettings(location);
  }
  const std::size_t server = location.find("://");
  if (server != std::string::npos) {
    // A password may hold a slash that was not encoded. Then a path with an @ may be cut too: showing too
    // little is better than showing a secret.
    const bool isPlain = location.find('@', server) == std::string::npos;
    return isPlain ? location : withoutUser(location, server + 3, location.size());
  }
  if (location.starts_with("sftp:")) {
    return withoutUser(location, 5, std::min(location.find(":/", 5), location.size()));
  }
  return location;
}

std::optional<std::string> RepositoryConfig::localFolder() const {
  const std::string folder = location.starts_with("local:") ? location.substr(6) : location;
  return folder.starts_with('/') ? std::optional(folder) : std::nullopt;
}

std::string newKeyText() {
  std::array<std::uint8_t, kKeyBytes> bytes{};
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw std::runtime_error("The system gives no random bytes for a key.");
  }
  return base32(bytes);
}

RepositoryFiles::RepositoryFiles(DataFolder folder) : folder_(std::move(folder)) {}

std::optional<RepositoryConfig> RepositoryFiles::configuration() const {
  const std::optional<std::string> text = readPrivateFile(folder_.configuration());
  if (!text) {
    return std::nullopt;
  }
  try {
    const nlohmann::json json = nlohmann::json::parse(*text);
    RepositoryConfig configuration;
    configuration.location = json.value("location", "");
    configuration.repositoryId = json.value("repositoryId", "");
    configuration.computerNumber = json.value("computerNumber", std::uint32_t{0});
    configuration.hostName = json.value("hostName", "");
    configuration.formerComputer = json.value("formerComputer", std::uint32_t{0});
    configuration.formerHighest = json.value("formerHighest", std::uint32_t{0});
    configuration.fileSystemUuid = json.value("fileSystemUuid", "");
    configuration.options = json.value("options", std::map<std::string, std::string>());
    return configuration;
  } catch (const nlohmann::json::exception&) {  // the message of the exception could quote a password
    throw std::runtime_error("The file " + folder_.configuration() + " is not what this program wrote.");
  }
}

void RepositoryFiles::setConfiguration(const RepositoryConfig& configuration) const {
  const std::string& location = configuration.location;
  // The storage program strips blanks from the file that holds the location.
  if (beginsOrEndsBlank(location) || location.find('\0') != std::string::npos) {
    throw std::runtime_error("The location of a repository cannot begin or end with a blank.");
  }
  if (!location.empty() && !configuration.localFolder() &&
      (location.find(':') == std::string::npos || location.starts_with("local:"))) {
    throw std::runtime_error("The location of a repository must be an absolute path or name a service.");
  }
  const nlohmann::json json = {{"location", location},
                               {"repositoryId", configuration.repositoryId},
                               {"computerNumber", configuration.computerNumber},
                               {"hostName", configuration.hostName},
                               {"formerComputer", configuration.formerComputer},
                               {"formerHighest", configuration.formerHighest},
                               {"fileSystemUuid", configuration.fileSystemUuid},
                               {"options", configuration.options}};
  std::string text;
  try {
    text = json.dump(2) + "\n";
  } catch (const nlohmann::json::exception&) {
    throw std::runtime_error("The location and the names of a repository must be UTF-8.");
  }
  makePrivateFolder(folder_.path);
  writeDurably(folder_.configuration(), text);
}

std::string RepositoryFiles::key() const {
  std::string text = readPrivateFile(folder_.key()).value_or("");
  while (!text.empty() && kBlanks.find(text.back()) != std::string_view::npos) {
    text.pop_back();  // an editor's line end
  }
  return text;
}

void RepositoryFiles::setKey(const std::string& text) const {
  if (!isKeyText(text)) {
    throw std::runtime_error("A key is one line that neither begins nor ends with a blank.");
  }
  makePrivateFolder(folder_.path);
  writeDurably(folder_.key(), text);
}

std::string RepositoryFiles::makeKey() const {
  const std::string text = newKeyText();
  setKey(text);
  return text;
}

std::map<std::string, std::string> RepositoryFiles::environment() const {
  std::map<std::string, std::string> environment;
  const std::string text = readPrivateFile(folder_.environment()).value_or("");
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    begin = end + 1;
    const std::size_t equals = line.find('=');
    if (line.empty() || line.front() == '#') {
      continue;
    }
    if (equals == std::string::npos) {
      throw std::runtime_error("A line of the file " + folder_.environment() + " is not NAME=VALUE.");
    }
    demandAllowedName(line.substr(0, equals));
    environment[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return environment;
}

void RepositoryFiles::setEnvironment(const std::map<std::string, std::string>& environment) const {
  std::string text;
  for (const auto& [name, value] : environment) {
    demandAllowedName(name);
    if (value.find_first_of(std::string_view("\n\0", 2)) != std::string::npos) {
      throw std::runtime_error("The value of " + name + " has more than one line.");
    }
    text.append(name).append("=").append(value).append("\n");
  }
  makePrivateFolder(folder_.path);
  writeDurably(folder_.environment(), text);
}

}  // namespace keldane
