#include "tests/tools/faults/MenuOracle.h"

#include <algorithm>
#include <filesystem>

#include "fuzz/FrameStream.h"
#include "platform/plist/PropertyListSerialization.h"
#include "platform/text/Unicode.h"

namespace keldane::testing {

namespace {

using fuzzing::Frame;
using fuzzing::FrameStream;

constexpr std::uint32_t kChecked = 1;
constexpr std::uint32_t kEnabled = 2;
constexpr std::uint32_t kGrayed = 4;
constexpr std::uint32_t kPriorityOffer = 0x60000;
constexpr std::uint32_t kPriorityChecked = 0x10000;

BytesView viewOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// The answers among the messages, without the first `dropped` ones.
Answers answersIn(const std::vector<Frame>& frames, std::size_t dropped) {
  Answers answers;
  for (std::size_t i = dropped; i < frames.size(); ++i) {
    if (frames[i].type == kResponseFrame && !frames[i].payload.empty()) {
      answers.push_back(PropertyListSerialization::propertyListFromData(frames[i].payload, nullptr));
    } else if (frames[i].type != kRequestFrame) {
      answers.emplace_back();
    }
  }
  return answers;
}

/// The flags of a dictionary; 0 for any other value.
std::uint32_t flagsOf(const PropertyList& node) { return node["simpleFlags"].unsignedIntValue(); }

}  // namespace

std::vector<Answers> possibleAnswers(const ConnectionReport& report) {
  const std::vector<Frame> frames = FrameStream(viewOf(report.delivered)).frames;
  // Bytes that came before the client asked anything may have been read before or after its first question.
  const std::size_t early =
      FrameStream(viewOf(std::string_view(report.delivered).substr(0, report.early))).frames.size();
  std::vector<Answers> possible;
  for (std::size_t dropped = 0; dropped <= early; ++dropped) {
    if (dropped > 0 && frames[dropped - 1].type == kResponseFrame) {
      break;
    }
    const Answers all = answersIn(frames, dropped);
    // The proxy has read these questions, so they were sent and their answers are used. Whether the client
    // could still send the next one depends on timing.
    const std::size_t certain =
        report.endedByClient ? all.size() : std::min<std::size_t>(report.requests, all.size());
    for (std::size_t count = certain; count <= all.size(); ++count) {
      possible.emplace_back(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count));
    }
  }
  return possible;
}

Titles menuFor(const std::vector<std::string>& paths, const Answers& answers) {
  std::size_t next = 0;
  const auto ask = [&] { return next < answers.size() ? answers[next++] : PropertyList(); };
  bool isBarred = false;
  bool offersBackup = false;
  bool offersExclude = false;
  bool hasFolder = false;
  bool someFileWithPriorityOffer = false;
  bool someFileWithout = false;
  for (const std::string& path : paths) {
    const PropertyList first = ask();
    isBarred |= first && (flagsOf(first) & kEnabled) == 0;
    ask();  // the plug-in asks whether it is in the backup, and ignores the answer
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    const bool isFolder = std::filesystem::is_directory(status);
    if (std::filesystem::exists(status) && !isFolder) {
      ask();  // the plug-in asks for the rule of its type, and ignores the answer
      const std::uint32_t flags = flagsOf(ask());
      const bool isOffered = (flags & kPriorityOffer) == kPriorityOffer && (flags & kPriorityChecked) == 0;
      (isOffered ? someFileWithPriorityOffer : someFileWithout) = true;
    }
    hasFolder |= isFolder;
    if (const PropertyList node = ask()) {
      const std::uint32_t flags = flagsOf(node);
      if (node["isDirectory"].boolValue()) {
        offersBackup = offersExclude = true;
      } else if ((flags & kEnabled) != 0) {
        offersExclude |= (flags & (kChecked | kGrayed)) != 0;
        offersBackup |= (flags & kChecked) == 0;
      }
    }
  }
  if (isBarred) {
    return std::nullopt;
  }
  std::vector<std::string> titles;
  if (paths.size() > 1) {
    titles.emplace_back("Status: <multiple files selected>");
  } else if (const PropertyList node = ask()) {
    titles.push_back(validUtf8("Status: " + node["state"].description()));
  }
  titles.emplace_back("-");
  if (offersBackup) {
    titles.emplace_back("Back This Up");
  }
  if (offersExclude) {
    titles.emplace_back("Don't Back This Up");
  }
  if (!hasFolder && !someFileWithout && someFileWithPriorityOffer) {
    titles.emplace_back("Back Up This File As Soon As Possible");
  }
  titles.insert(titles.end(), {"-", "Open Keldane Preferences…"});
  return titles;
}

std::string contradiction(Effect effect, const Answers& answers, const Answers& clean) {
  const auto same = [](const PropertyList& one, const PropertyList& other) { return one.identical(other); };
  const std::size_t common = std::min(answers.size(), clean.size());
  switch (effect) {
    case Effect::whole:
      return std::equal(answers.begin(), answers.end(), clean.begin(), clean.end(), same)
                 ? ""
                 : "not every question got its answer";
    case Effect::missing:
      return answers.size() == common && std::equal(answers.begin(), answers.end(), clean.begin(), same)
                 ? ""
                 : "a question got an answer that is not its own";
    case Effect::misplaced:
      return std::all_of(answers.begin(), answers.end(),
                         [&](const PropertyList& answer) {
                           return std::any_of(clean.begin(), clean.end(),
                                              [&](const PropertyList& one) { return one.identical(answer); });
                         })
                 ? ""
                 : "a question got what nobody answered";
    case Effect::altered:
      return "";
  }
  return "";
}

}  // namespace keldane::testing
