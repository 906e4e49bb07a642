// The reasons why a path is in the backup or not, in words.
#pragma once

#include <string>

#include "daemon/rules/RuleBook.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// The rules that apply to a path, the deciding one first: an array of dictionaries with "kind" (root,
/// policy, own, type, folder or none), "rule" (a path or a type; absent when there is none), "includes" and
/// "text", a sentence.
PropertyList reasonsFor(const RuleBook& rules, const std::string& path, bool isDirectory);

}  // namespace keldane
