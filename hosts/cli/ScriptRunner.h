// Runs a script against one instance of a plug-in. Each line of the script is a step, a JSON object.
#pragma once

#include <functional>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "hosts/core/MenuHost.h"

namespace keldane {

/// Runs the steps one after the other in one process. The files that the plug-in asks to open are not really
/// opened. For a step that is not understood the answer is an error, and the script goes on.
class ScriptRunner {
 public:
  /// `defaults` gives the form of a selection for steps that do not name one.
  ScriptRunner(std::string bundle, Selection defaults);
  ~ScriptRunner();
  ScriptRunner(const ScriptRunner&) = delete;
  ScriptRunner& operator=(const ScriptRunner&) = delete;

  /// Returns the exit status: 0, or 2 when a step was not understood.
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
