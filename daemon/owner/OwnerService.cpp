#include "daemon/owner/OwnerService.h"

#include <new>
#include <optional>
#include <string>

#include "platform/syslog/SystemLog.h"

namespace keldane {

namespace {

using Kind = PropertyList::Kind;

constexpr std::size_t kLongestOwnerText = 65536;
constexpr std::size_t kMostRestoreItems = 100'000;

/// A key of a request. A key that is not listed is passed on as it is.
struct RequestKey {
  std::string_view selector;
  const char* key;
  Kind kind;
  bool required = false;
};

constexpr RequestKey kRequestKeys[] = {
    {"repository:", "probe", Kind::number},
    {"setUpRepository:", "location", Kind::string, true},
    {"setUpRepository:", "environment", Kind::dictionary},
    {"setUpRepository:", "options", Kind::dictionary},
    {"setUpRepository:", "key", Kind::string},
    {"setUpRepository:", "adopt", Kind::number},
    {"recover:", "location", Kind::string, true},
    {"recover:", "key", Kind::string, true},
    {"recover:", "environment", Kind::dictionary},
    {"recover:", "options", Kind::dictionary},
    {"recover:", "computerNumber", Kind::number},
    {"recover:", "takeOver", Kind::number},
    {"importKey:", "key", Kind::string, true},
    {"verifyKey:", "key", Kind::string, true},
    {"addPassphrase:", "passphrase", Kind::string, true},
    {"check:", "mode", Kind::string, true},
    {"check:", "sample", Kind::number},
    {"find:", "pattern", Kind::string, true},
    {"find:", "most", Kind::number},
    {"failures:", "most", Kind::number},
    {"settings:", "keepDeletedDays", Kind::number},
    {"settings:", "quotaMB", Kind::number},
    {"settings:", "alertDays", Kind::number},
    {"settings:", "restBelowPercent", Kind::number},
    {"settings:", "restOnMetered", Kind::number},
    {"settings:", "restInPowerSaver", Kind::number},
    {"surroundings:", "batteryPercent", Kind::number},
    {"surroundings:", "metered", Kind::number},
    {"surroundings:", "powerSaver", Kind::number},
    {"restore:", "items", Kind::array, true},
    {"restore:", "target", Kind::string},
    {"restore:", "exactPath", Kind::string},
    {"restore:", "conflict", Kind::string},
    {"restore:", "before", Kind::date},
    {"restoreReport:", "job", Kind::number, true},
    {"cancelRestore:", "job", Kind::number, true},
    {"previewPattern:", "pattern", Kind::string, true},
    {"previewPattern:", "most", Kind::number},
    {"storedFolder:", "path", Kind::string, true},
    {"storedFolder:", "before", Kind::date, true},
    {"moveRepository:", "location", Kind::string, true},
    {"moveRepository:", "environment", Kind::dictionary},
    {"moveRepository:", "options", Kind::dictionary},
};

const char* nameOf(Kind kind) {
  switch (kind) {
    case Kind::string:
      return "a text";
    case Kind::number:
      return "a number";
    case Kind::date:
      return "a date";
    case Kind::array:
      return "a list";
    default:
      return "a dictionary";
  }
}

/// A NUL would cut the text short on its way to the storage program.
bool isUsableText(std::string_view text) {
  return !text.empty() && text.size() <= kLongestOwnerText && text.find('\0') == std::string_view::npos;
}

bool holdsTextsOnly(const PropertyList& dictionary) {
  for (std::size_t i = 0; i < dictionary.count(); ++i) {
    const auto [name, value] = dictionary.entry(i);
    if (!name.isString() || !isUsableText(name.string()) || !value.isString() ||
        (!value.string().empty() && !isUsableText(value.string()))) {
      return false;
    }
  }
  return true;
}

bool holdsItemsOnly(const PropertyList& items) {
  for (std::size_t i = 0; i < items.count(); ++i) {
    const PropertyList item = items[i];
    const PropertyList version = item["version"];
    if (!item.isDictionary() || !item["path"].isString() || !isUsableText(item["path"].string()) ||
        (version && !version.isNumber())) {
      return false;
    }
  }
  return items.count() > 0 && items.count() <= kMostRestoreItems;
}

std::optional<std::string> whatIsWrongWith(const RequestKey& key, const PropertyList& value) {
  const std::string name = std::string("\"") + key.key + "\"";
  if (!value) {
    return key.required ? std::optional("The request lacks " + name + ".") : std::nullopt;
  }
  if (value.kind() != key.kind) {
    return name + " of the request is not " + nameOf(key.kind) + ".";
  }
  const bool usable = key.kind == Kind::string       ? isUsableText(value.string())
                      : key.kind == Kind::dictionary ? holdsTextsOnly(value)
                      : key.kind == Kind::array      ? holdsItemsOnly(value)
                                                     : true;
  return usable ? std::nullopt : std::optional(name + " of the request cannot be used.");
}

std::optional<std::string> whatIsWrongWith(std::string_view selector, const PropertyList& request) {
  if (!request.isDictionary()) {
    return "The request is no dictionary.";
  }
  for (const RequestKey& key : kRequestKeys) {
    if (key.selector == selector) {
      if (std::optional<std::string> sentence = whatIsWrongWith(key, request[key.key])) {
        return sentence;
      }
    }
  }
  return std::nullopt;
}

RawValue refusal(const std::string& sentence) {
  return RawValue::of<'@'>(PropertyList::dictionary({{"error", sentence}}));
}

}  // namespace

const MethodSignature* OwnerService::methodSignatureForSelector(std::string_view selector) const {
  return KeldaneOwnerProtocol.find(selector);
}

void OwnerService::invoke(Invocation& invocation) {
  const std::string_view selector = invocation.signature.selector;
  const PropertyList request =
      invocation.arguments.empty() ? PropertyList() : invocation.arguments.front().as<'@'>();
  if (const std::optional<std::string> sentence = whatIsWrongWith(selector, request)) {
    invocation.result = refusal(*sentence);
    return;
  }
  try {
    performOwnerCall(*requests_, invocation);
  } catch (const std::bad_alloc&) {
    throw;  // this ends the connection, because any answer would be wrong
  } catch (const std::exception& error) {
    systemLog("%@ cannot be carried out: %s", selector, error.what());
    invocation.result = refusal("The daemon could not do this: " + std::string(error.what()));
  }
}

}  // namespace keldane
