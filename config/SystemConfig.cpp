#include "config/SystemConfig.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "platform/files/FileContents.h"
#include "platform/files/UserFolders.h"
#include "platform/text/Translation.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

enum class Kind { location, paths, number, yesOrNo };

struct Name {
  std::string_view text;
  Kind kind;
  std::uint64_t least = 0, most = 0;  ///< the range of a number
};

constexpr Name kNames[] = {
    {"location", Kind::location},
    {"include", Kind::paths},
    {"exclude", Kind::paths},
    {"keep-deleted-days", Kind::number, 1, 36500},
    {"quota-mb", Kind::number, 0, UINT32_MAX},
    {"alert-days", Kind::number, 1, 3650},
    {"automatic", Kind::yesOrNo},
    {"low-priority", Kind::yesOrNo},
    {"batch-delay-seconds", Kind::number, 0, 60},
};

/// Thrown for a line that is not understood. Its text gives the reason.
class BadLine : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

const Name* nameOf(std::string_view text) {
  const auto* const found =
      std::find_if(std::begin(kNames), std::end(kNames), [&](const Name& name) { return name.text == text; });
  return found == std::end(kNames) ? nullptr : found;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string_view::npos ? std::string_view()
                                         : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string userName() {
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 16384> buffer{};
  const bool isKnown =
      getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
  return isKnown ? found->pw_name : std::to_string(geteuid());
}

std::string hostName() {
  std::array<char, 256> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

std::string placeholder(std::string_view name) {
  const std::string value = name == "HOST"   ? hostName()
                            : name == "USER" ? userName()
                            : name == "HOME" ? homeFolder().string()
                                             : std::string();
  if (value.empty()) {
    throw BadLine(filled(tr("${%s} has no value here; there are ${HOST}, ${USER} and ${HOME}."), name));
  }
  return value;
}

std::string withPlaceholders(std::string_view text) {
  std::string result;
  for (std::size_t begin = 0; (begin = text.find("${")) != std::string_view::npos;) {
    const std::size_t end = text.find('}', begin);
    if (end == std::string_view::npos) {
      throw BadLine(tr("A ${ has no } after it."));
    }
    result.append(text.substr(0, begin)).append(placeholder(text.substr(begin + 2, end - begin - 2)));
    text.remove_prefix(end + 1);
  }
  return result.append(text);
}

std::string absolutePathFrom(std::string_view text) {
  const std::string path = withPlaceholders(text);
  if (!path.starts_with('/')) {
    throw BadLine(filled(tr("%s is no absolute path."), quoted(text)));
  }
  std::string normal = std::filesystem::path(path).lexically_normal().string();
  while (normal.size() > 1 && normal.ends_with('/')) {
    normal.pop_back();
  }
  return normal;
}

/// An absolute path, or "service:…" without a password, as on a command line.
std::string locationFrom(std::string_view text) {
  const std::string location = withPlaceholders(text);
  const std::size_t scheme = location.find("://");
  if (!location.starts_with('/') && location.find(':') == std::string::npos) {
    throw BadLine(filled(tr("%s is neither an absolute path nor a place on a server."), quoted(text)));
  }
  if (scheme != std::string::npos) {
    const std::string_view server = std::string_view(location).substr(scheme + 3);
    const std::size_t at = server.rfind('@');
    if (at != std::string_view::npos && server.substr(0, at).find(':') != std::string_view::npos) {
      throw BadLine(tr("Everybody can read this file: a location in it must not hold a password."));
    }
  }
  return location;
}

std::string numberFrom(const Name& name, std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < name.least || number > name.most) {
    throw BadLine(filled(tr("%s is no whole number from %s to %s."), quoted(text), std::to_string(name.least),
                         std::to_string(name.most)));
  }
  return std::to_string(number);
}

std::string valueFrom(const Name& name, std::string_view text) {
  switch (name.kind) {
    case Kind::location:
      return locationFrom(text);
    case Kind::paths:
      return absolutePathFrom(text);
    case Kind::number:
      return numberFrom(name, text);
    case Kind::yesOrNo:
      if (text == "yes" || text == "no") {
        return text == "yes" ? "1" : "0";
      }
      break;
  }
  throw BadLine(filled(tr("%s is neither yes nor no."), quoted(text)));
}

}  // namespace

SystemConfig SystemConfig::read(const std::string& file) {
  int error = 0;
  const std::optional<Bytes> bytes = readFile(file, &error);
  if (bytes) {
    return parse(std::string(bytes->begin(), bytes->end()));
  }
  SystemConfig config;
  if (error != ENOENT && error != ENOTDIR) {
    config.problems_.push_back(
        {0, filled(tr("The file %s cannot be read: %s."), file, std::generic_category().message(error))});
  }
  return config;
}

SystemConfig SystemConfig::parse(std::string_view text) {
  SystemConfig config;
  Section* section = nullptr;
  for (unsigned number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    try {
      config.readLine(trimmed(text.substr(0, end)), section);
    } catch (const BadLine& bad) {
      config.problems_.push_back({number, bad.what()});
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return config;
}

void SystemConfig::readLine(std::string_view line, Section*& section) {
  if (line.empty() || line.front() == '#') {
    return;
  }
  if (!isValidUtf8(line) || line.find('\0') != std::string_view::npos) {
    throw BadLine(tr("The line is no text in UTF-8."));
  }
  if (line.front() == '[') {
    section = line == "[default]" ? &defaults_ : line == "[fixed]" ? &fixed_ : nullptr;
    if (section == nullptr) {
      throw BadLine(filled(tr("%s is no section; there are [default] and [fixed]."), quoted(line)));
    }
    return;
  }
  const std::size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    throw BadLine(filled(tr("%s is not name = value."), quoted(line)));
  }
  if (section == nullptr) {
    throw BadLine(tr("The line stands in neither [default] nor [fixed]."));
  }
  readValue(trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)), *section);
}

void SystemConfig::readValue(std::string_view text, std::string_view value, Section& section) {
  const Name* const name = nameOf(text);
  if (name == nullptr) {
    throw BadLine(filled(tr("There is no value of the name %s."), quoted(text)));
  }
  if (name->text == "include" && &section == &fixed_) {
    throw BadLine(tr("\"include\" can be a default only."));
  }
  if (name->kind == Kind::paths) {
    section.lists[std::string(text)].push_back(valueFrom(*name, value));
  } else if (!section.values.emplace(text, valueFrom(*name, value)).second) {
    throw BadLine(filled(tr("%s was given before; the first one counts."), quoted(text)));
  }
}

std::optional<ConfigValue> SystemConfig::value(std::string_view name) const {
  for (const Section* section : {&fixed_, &defaults_}) {
    const auto found = section->values.find(name);
    if (found != section->values.end()) {
      return ConfigValue{found->second, section == &fixed_};
    }
  }
  return std::nullopt;
}

bool SystemConfig::isFixed(std::string_view name) const {
  return fixed_.values.contains(name) || fixed_.lists.contains(name);
}

std::vector<std::string> SystemConfig::list(std::string_view name, bool fixed) const {
  const Section& section = fixed ? fixed_ : defaults_;
  const auto found = section.lists.find(name);
  return found == section.lists.end() ? std::vector<std::string>() : found->second;
}

std::vector<std::string> SystemConfig::names() {
  std::vector<std::string> names;
  for (const Name& name : kNames) {
    names.emplace_back(name.text);
  }
  return names;
}

bool SystemConfig::isList(std::string_view name) {
  const Name* const found = nameOf(name);
  return found != nullptr && found->kind == Kind::paths;
}

}  // namespace keldane
