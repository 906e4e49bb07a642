#include "platform/bundle/Variables.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "platform/files/UserFolders.h"

namespace keldane {

namespace {

constexpr std::string_view kBegin = "${";

bool isName(std::string_view name) {
  return !name.empty() && std::isdigit(static_cast<unsigned char>(name.front())) == 0 &&
         std::all_of(name.begin(), name.end(),
                     [](unsigned char c) { return c < 128 && (std::isalnum(c) != 0 || c == '_'); });
}

std::optional<std::string> variable(const std::string& name) {
  if (name == "XDG_RUNTIME_DIR") {
    return runtimeFolder();
  }
  const char* value = std::getenv(name.c_str());
  return value != nullptr && *value != '\0' ? std::optional<std::string>(value) : std::nullopt;
}

}  // namespace

std::optional<std::string> withVariables(std::string_view text) {
  std::string result;
  for (std::size_t begin = 0; (begin = text.find(kBegin)) != std::string_view::npos;) {
    const std::size_t end = text.find('}', begin);
    const std::string_view name = end == std::string_view::npos
                                      ? std::string_view()
                                      : text.substr(begin + kBegin.size(), end - begin - kBegin.size());
    const std::optional<std::string> value = isName(name) ? variable(std::string(name)) : std::nullopt;
    if (!value) {
      return std::nullopt;
    }
    result.append(text.substr(0, begin)).append(*value);
    text.remove_prefix(end + 1);
  }
  return result.append(text);
}

}  // namespace keldane
