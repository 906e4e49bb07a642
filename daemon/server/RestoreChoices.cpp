#include "daemon/server/RestoreChoices.h"

#include "daemon/rules/RuleBook.h"

namespace keldane {

namespace {

std::optional<Conflict> conflictFrom(const PropertyList& word) {
  if (!word || word.string() == "keepBoth") {
    return Conflict::keepBoth;
  }
  if (word.string() == "replace") {
    return Conflict::replace;
  }
  return word.string() == "skip" ? std::optional(Conflict::skip) : std::nullopt;
}

/// Takes a path. Returns false when there is a value that is no usable path.
bool takePath(const PropertyList& value, std::string& path) {
  if (!value) {
    return true;
  }
  const std::optional<std::string> normal = normalizedPath(value.string());
  path = normal.value_or("");
  return normal.has_value();
}

}  // namespace

std::optional<RestoreRequest> restoreRequestFrom(const PropertyList& choices, std::string* refusal) {
  RestoreRequest request;
  const auto refuse = [&](const char* sentence) {
    *refusal = sentence;
    return std::nullopt;
  };
  const PropertyList files = choices["files"];
  for (std::size_t i = 0; i < files.count(); ++i) {
    const PropertyList file = files[i];
    const std::optional<std::string> path =
        normalizedPath(file.isString() ? file.string() : file["path"].string());
    if (!path) {
      return refuse("A path is not usable.");
    }
    request.items.push_back({*path, file.isString() ? 0U : file["version"].unsignedIntValue()});
  }
  if (request.items.empty()) {
    return refuse("No path was given.");
  }
  if (!takePath(choices["target"], request.target) || !takePath(choices["exactPath"], request.exactPath)) {
    return refuse("The target is no usable path.");
  }
  const std::optional<Conflict> conflict = conflictFrom(choices["conflict"]);
  if (!conflict) {
    return refuse("What to do with what is there is one of keepBoth, replace and skip.");
  }
  request.conflict = *conflict;
  if (choices["before"].isDate()) {
    request.before = choices["before"].date().unixTime();
  }
  return request;
}

}  // namespace keldane
