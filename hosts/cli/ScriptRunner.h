// A script of steps, a JSON object a line, against one instance of a plug-in.
#pragma once

#include <functional>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/MenuHost.h"

namespace keldane {

/// Runs the steps one after the other in one process; nothing that the plug-in asks to open is really opened.
/// A step that is not understood answers an error, and the script goes on.
class ScriptRunner {
 public:
  /// `defaults` tells how a selection is described where a step does not say.
  ScriptRunner(std::string bundle, Selection defaults);
  ~ScriptRunner();
  ScriptRunner(const ScriptRunner&) = delete;
  ScriptRunner& operator=(const ScriptRunner&) = delete;

  /// Answers the exit status: 0, or 2 when some step was not understood.
  int run(std::istream& steps, std::ostream& answers);

 private:
  nlohmann::ordered_json perform(const nlohmann::ordered_json& step);
  nlohmann::ordered_json performOnInstance(const std::string& what, const nlohmann::ordered_json& step);
  Selection selectionFrom(const nlohmann::ordered_json& step) const;

  std::string bundle_;
  Selection defaults_;
  MenuHost host_;
  std::vector<std::optional<std::string>> opened_;
};

}  // namespace keldane
