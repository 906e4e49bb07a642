#include "daemon/server/nodes/NodeReasons.h"

#include <utility>

namespace keldane {

namespace {

std::pair<const char*, std::string> wordsFor(const Reason& reason) {
  const std::string includes = reason.includes ? " includes it." : " excludes it.";
  switch (reason.kind) {
    case Reason::Kind::root:
      return {"root", "It lies outside of " + reason.rule + ", and only what is in there can be backed up."};
    case Reason::Kind::policy:
      return {"policy", reason.rule + " and all below it is kept out of the backup."};
    case Reason::Kind::own:
      return {"own", "A rule of its own" + includes};
    case Reason::Kind::type:
      return {"type", (reason.rule == "." ? "The rule for files without a type"
                                          : "The rule for files of the type " + reason.rule) +
                          includes};
    case Reason::Kind::folder:
      return {"folder", "The rule of the folder " + reason.rule + includes};
    case Reason::Kind::ignored:
      return {"ignored", "The list of what is ignored leaves out " + reason.rule + ", by its line \"" +
                             reason.line + "\"."};
    case Reason::Kind::none:
      break;
  }
  return {"none", "No rule includes it."};
}

}  // namespace

PropertyList reasonsFor(const RuleBook& rules, const std::string& path, bool isDirectory) {
  PropertyList::Array reasons;
  for (const Reason& reason : rules.explain(path, isDirectory)) {
    const auto [kind, text] = wordsFor(reason);
    reasons.push_back(
        PropertyList::dictionary({{"kind", kind},
                                  {"rule", reason.rule.empty() ? PropertyList() : PropertyList(reason.rule)},
                                  {"includes", reason.includes},
                                  {"text", text}}));
  }
  return PropertyList::array(std::move(reasons));
}

}  // namespace keldane
