#include "daemon/engine/Secrets.h"

#include <algorithm>
#include <array>

namespace keldane {
namespace {

constexpr std::string_view kHidden = "…";
/// Shorter texts would be found inside ordinary words, so they are not hidden.
constexpr std::size_t kShortest = 3;

bool isHarmless(std::string_view name) {
  static constexpr std::array<std::string_view, 6> kEndings = {"_REGION", "_URL",  "_CACERT",
                                                               "_PROXY",  "_SOCK", "_CONFIG"};
  return std::ranges::any_of(kEndings, [&](std::string_view ending) { return name.ends_with(ending); });
}

std::string decoded(std::string_view text) {
  const auto digit = [](char letter) {
    return letter >= '0' && letter <= '9'   ? letter - '0'
           : letter >= 'a' && letter <= 'f' ? letter - 'a' + 10
           : letter >= 'A' && letter <= 'F' ? letter - 'A' + 10
                                            : -1;
  };
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && digit(text[i + 1]) >= 0 && digit(text[i + 2]) >= 0) {
      plain.push_back(static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2])));
      i += 2;
    } else {
      plain.push_back(text[i]);
    }
  }
  return plain;
}

/// The part "user:password" of "…://user:password@…"; empty when there is none.
std::string userPartOf(std::string_view url) {
  const std::size_t begin = url.find("://");
  const std::size_t at = url.rfind('@');
  if (begin == std::string_view::npos || at == std::string_view::npos || at < begin + 3) {
    return {};
  }
  return std::string(url.substr(begin + 3, at - begin - 3));
}

void replaceAll(std::string& text, const std::string& what) {
  for (std::size_t found = text.find(what); found != std::string::npos;
       found = text.find(what, found + kHidden.size())) {
    text.replace(found, what.size(), kHidden);
  }
}

/// Hides the part between "://" and an @ of the same word.
void hideUsers(std::string& text) {
  for (std::size_t found = text.find("://"); found != std::string::npos;
       found = text.find("://", found + 3)) {
    const std::size_t end = std::min(text.find_first_of(" \t\n\"'<>", found), text.size());
    const std::size_t at = text.rfind('@', end);
    if (at != std::string::npos && at > found + 3 && at < end) {
      text.replace(found + 3, at - found - 3, kHidden);
    }
  }
}

}  // namespace

Secrets::Secrets(const RepositoryConfig& configuration, const std::string& key,
                 const std::map<std::string, std::string>& environment) {
  add(key);
  const std::string user = userPartOf(configuration.location);
  add(user);
  const std::size_t colon = user.find(':');
  if (colon != std::string::npos) {
    add(user.substr(colon + 1));
  }
  if (configuration.location.starts_with("rclone:")) {
    const std::size_t comma = configuration.location.find(',');
    const std::size_t path = configuration.location.rfind(':');
    if (comma != std::string::npos && path != std::string::npos && path > comma) {
      add(configuration.location.substr(comma, path - comma));
    }
  }
  for (const auto& [name, value] : environment) {
    add(isHarmless(name) ? userPartOf(value) : value);
  }
}

void Secrets::add(const std::string& secret) {
  for (const std::string& form : {secret, decoded(secret)}) {
    if (form.size() >= kShortest && std::ranges::find(secrets_, form) == secrets_.end()) {
      secrets_.push_back(form);
    }
  }
  std::ranges::stable_sort(secrets_, std::ranges::greater(), &std::string::size);
}

void Secrets::add(const Secrets& others) {
  for (const std::string& secret : others.secrets_) {
    add(secret);
  }
}

std::string Secrets::scrubbed(std::string_view text) const {
  std::string line(text);
  for (const std::string& secret : secrets_) {
    replaceAll(line, secret);
  }
  hideUsers(line);
  std::ranges::replace_if(
      line, [](char letter) { return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F; }, ' ');
  return line;
}

}  // namespace keldane
