#include "hosts/cli/ScriptRunner.h"

#include <algorithm>
#include <chrono>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <thread>

#include "cli/AbsolutePath.h"
#include "cli/Json.h"
#include "hosts/cli/MenuOutput.h"
#include "platform/host/Host.h"
#include "platform/runloop/RunLoop.h"

namespace keldane {

namespace {

using json = nlohmann::ordered_json;

/// Thrown for a step that cannot be carried out. Its text is the answer.
struct StepError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

CFOwner<CFUUIDRef> uuidFrom(const json& step, const char* key) {
  const auto text = step.at(key).get<std::string>();
  const CFOwner<CFStringRef> string(
      CFStringCreateWithBytes(kCFAllocatorSystemDefault, text.data(), text.size()));
  CFOwner<CFUUIDRef> uuid(CFUUIDCreateFromString(kCFAllocatorSystemDefault, string.get()));
  if (!uuid) {
    throw StepError("\"" + text + "\" is no UUID");
  }
  return uuid;
}

std::uint32_t commandFrom(const json& step) {
  const json& command = step.at("command");
  if (command.is_number_integer()) {
    return static_cast<std::uint32_t>(command.get<std::int64_t>());
  }
  const std::optional<std::uint32_t> number = commandNamed(command.get<std::string>());
  if (!number) {
    throw StepError("\"" + command.get<std::string>() + "\" is no command");
  }
  return *number;
}

OSType codeFrom(const json& step, const char* key, OSType otherwise) {
  if (!step.contains(key)) {
    return otherwise;
  }
  const std::optional<OSType> code = fourCharCodeNamed(step.at(key).get<std::string>());
  if (!code) {
    throw StepError("\"" + step.at(key).get<std::string>() + "\" is no four-character code");
  }
  return *code;
}

std::chrono::duration<double> secondsFrom(const json& step) {
  // A day is long enough for any script and does not overflow any clock.
  return std::chrono::duration<double>(std::clamp(step.at("seconds").get<double>(), 0.0, 86400.0));
}

void setHost(const json& step) {
  Host& host = Host::shared();
  host.setProcess(codeFrom(step, "signature", host.signature()), codeFrom(step, "type", host.type()));
  host.setProcessInformationError(step.value("error", OSStatus{0}));
}

void setGestalt(const json& step) {
  Host& host = Host::shared();
  host.setContextualMenuAttributes(step.value("attributes", host.contextualMenuAttributes()));
  host.setGestaltError(step.value("error", OSStatus{0}));
}

}  // namespace

ScriptRunner::ScriptRunner(std::string bundle, Selection defaults)
    : bundle_(std::move(bundle)), defaults_(std::move(defaults)) {
  Host::shared().setFileOpener([this](const std::optional<std::string>& path) {
    opened_.push_back(path);
    return true;
  });
}

ScriptRunner::~ScriptRunner() { Host::shared().setFileOpener({}); }

int ScriptRunner::run(std::istream& steps, std::ostream& answers) {
  bool understood = true;
  for (std::string line; std::getline(steps, line);) {
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') {
      continue;
    }
    json answer;
    try {
      answer = perform(json::parse(line));
    } catch (const std::exception& error) {
      understood = false;
      answer = {{"error", error.what()}};
    }
    answers << jsonLine(answer) << std::endl;
  }
  return understood ? 0 : 2;
}

json ScriptRunner::perform(const json& step) {
  const auto what = step.at("do").get<std::string>();
  if (what == "load") {
    std::string error;
    return host_.load(bundle_, &error) ? json{{"ok", true}} : json{{"ok", false}, {"error", error}};
  }
  if (what == "run") {
    RunLoop::main().run(secondsFrom(step));
  } else if (what == "sleep") {
    std::this_thread::sleep_for(secondsFrom(step));
  } else if (what == "host") {
    setHost(step);
  } else if (what == "gestalt") {
    setGestalt(step);
  } else if (what == "application") {
    Host::shared().setApplicationAvailable(step.at("available").get<bool>());
  } else if (what == "opened") {
    json files = json::array();
    for (const std::optional<std::string>& file : std::exchange(opened_, {})) {
      files.push_back(file ? json(*file) : json());
    }
    return {{"files", files}};
  } else {
    return performOnInstance(what, step);
  }
  return json::object();
}

json ScriptRunner::performOnInstance(const std::string& what, const json& step) {
  static constexpr std::string_view kSteps[] = {"create",    "query",   "addref", "release",
                                                "instances", "examine", "select", "cleanup"};
  if (std::find(std::begin(kSteps), std::end(kSteps), what) == std::end(kSteps)) {
    throw StepError("There is no step \"" + what + "\"");
  }
  std::string error;
  if (!host_.load(bundle_, &error)) {
    throw StepError(error);
  }
  if (what == "create") {
    return {{"ok", host_.create(uuidFrom(step, "type").get())}};
  }
  if (what == "query") {
    bool pointer = false;
    const HRESULT result = host_.queryInterface(uuidFrom(step, "interface").get(), &pointer);
    return {{"result", static_cast<std::uint32_t>(result)}, {"pointer", pointer}};
  }
  if (what == "addref") {
    return {{"count", host_.addRef()}};
  }
  if (what == "release") {
    return {{"count", host_.release()}};
  }
  if (what == "instances") {
    return {{"count", host_.instances()}};
  }
  if (what == "examine") {
    const MenuHost::Examination examination = host_.examine(selectionFrom(step));
    return {{"status", examination.status}, {"menu", menuJson(examination.menu)}};
  }
  if (what == "select") {
    return {{"status", host_.select(selectionFrom(step), commandFrom(step))}};
  }
  host_.cleanup();
  return json::object();
}

Selection ScriptRunner::selectionFrom(const json& step) const {
  Selection selection = defaults_;
  if (step.contains("descriptor")) {
    const std::optional<DescriptorForm> form = descriptorFormNamed(step.at("descriptor").get<std::string>());
    if (!form) {
      throw StepError("\"" + step.at("descriptor").get<std::string>() + "\" is no form of a descriptor");
    }
    selection.form = *form;
  }
  selection.asList = step.value("list", selection.asList);
  for (const json& path : step.value("paths", json::array())) {
    selection.paths.push_back(absolutePath(path.get<std::string>()));
  }
  return selection;
}

}  // namespace keldane
