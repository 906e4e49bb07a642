#include "daemon/restore/RestoreRecords.h"

#include "platform/plist/PropertyListError.h"
#include "platform/plist/binary/BinaryPropertyListReader.h"
#include "platform/plist/binary/BinaryPropertyListWriter.h"

namespace keldane {

namespace {

PropertyList bytesFrom(const std::string& text) {
  return PropertyList::data({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

std::string textFrom(const PropertyList& bytes) {
  const BytesView view = bytes.data();
  return {view.begin(), view.end()};
}

std::string packed(const PropertyList& value) {
  const Bytes bytes = writeBinaryPropertyList(value);
  return {bytes.begin(), bytes.end()};
}

PropertyList unpacked(const std::string& bytes) {
  return readBinaryPropertyList({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

PropertyList listOf(const RestoreRequest& request) {
  PropertyList::Array paths;
  PropertyList::Array versions;
  PropertyList::Array groups;
  for (const RestoreRequest::Item& item : request.items) {
    paths.push_back(bytesFrom(item.path));
    versions.emplace_back(item.version);
  }
  for (const gid_t group : request.groups) {
    groups.emplace_back(group);
  }
  return PropertyList::dictionary({{"paths", PropertyList::array(std::move(paths))},
                                   {"versions", PropertyList::array(std::move(versions))},
                                   {"target", bytesFrom(request.target)},
                                   {"exactPath", bytesFrom(request.exactPath)},
                                   {"conflict", static_cast<std::uint32_t>(request.conflict)},
                                   {"before", request.before},
                                   {"priority", request.priority},
                                   {"user", request.user},
                                   {"group", request.group},
                                   {"groups", PropertyList::array(std::move(groups))}});
}

RestoreRequest requestFrom(const PropertyList& list) {
  RestoreRequest request;
  const PropertyList paths = list["paths"];
  for (std::size_t i = 0; i < paths.count(); ++i) {
    request.items.push_back({textFrom(paths[i]), list["versions"][i].unsignedIntValue()});
  }
  request.target = textFrom(list["target"]);
  request.exactPath = textFrom(list["exactPath"]);
  request.conflict = static_cast<Conflict>(list["conflict"].unsignedIntValue());
  request.before = list["before"].doubleValue();
  request.priority = list["priority"].unsignedIntValue();
  request.user = list["user"].unsignedIntValue();
  request.group = list["group"].unsignedIntValue();
  const PropertyList groups = list["groups"];
  for (std::size_t i = 0; i < groups.count(); ++i) {
    request.groups.push_back(groups[i].unsignedIntValue());
  }
  return request;
}

PropertyList listOf(const RestoreState& state) {
  const RestoreReport& report = state.report;
  PropertyList::Array problems;
  PropertyList::Array portion;
  Bytes isDone;
  for (const std::string& problem : report.problems) {
    problems.push_back(bytesFrom(problem));
  }
  for (const std::uint32_t item : state.portion) {
    portion.emplace_back(item);
  }
  for (const bool done : state.isDone) {
    isDone.push_back(done ? 1 : 0);
  }
  return PropertyList::dictionary({{"files", report.files},
                                   {"filesDone", report.filesDone},
                                   {"bytes", report.bytes},
                                   {"bytesDone", report.bytesDone},
                                   {"restored", report.restored},
                                   {"skipped", report.skipped},
                                   {"problems", PropertyList::array(std::move(problems))},
                                   {"message", bytesFrom(report.message)},
                                   {"isDone", PropertyList::data(isDone)},
                                   {"staging", bytesFrom(state.staging)},
                                   {"isPlacing", state.isPlacing},
                                   {"portion", PropertyList::array(std::move(portion))},
                                   {"portionFiles", state.portionFiles},
                                   {"portionBytes", state.portionBytes}});
}

void readState(const PropertyList& list, RestoreState& state) {
  RestoreReport& report = state.report;
  report.files = list["files"].unsignedLongLongValue();
  report.filesDone = list["filesDone"].unsignedLongLongValue();
  report.bytes = list["bytes"].unsignedLongLongValue();
  report.bytesDone = list["bytesDone"].unsignedLongLongValue();
  report.restored = list["restored"].unsignedLongLongValue();
  report.skipped = list["skipped"].unsignedLongLongValue();
  const PropertyList problems = list["problems"];
  for (std::size_t i = 0; i < problems.count(); ++i) {
    report.problems.push_back(textFrom(problems[i]));
  }
  report.message = textFrom(list["message"]);
  const PropertyList isDone = list["isDone"];
  for (const std::uint8_t done : isDone.data()) {
    state.isDone.push_back(done != 0);
  }
  state.isDone.resize(state.request.items.size());
  state.staging = textFrom(list["staging"]);
  state.isPlacing = list["isPlacing"].boolValue();
  const PropertyList portion = list["portion"];
  for (std::size_t i = 0; i < portion.count(); ++i) {
    if (const std::uint32_t item = portion[i].unsignedIntValue(); item < state.request.items.size()) {
      state.portion.push_back(item);
    }
  }
  state.portionFiles = list["portionFiles"].unsignedLongLongValue();
  state.portionBytes = list["portionBytes"].unsignedLongLongValue();
}

}  // namespace

Store::RestoreRecord recordFrom(const RestoreState& state) {
  return {.number = state.number,
          .request = packed(listOf(state.request)),
          .status = static_cast<std::uint32_t>(state.report.status),
          .report = packed(listOf(state)),
          .user = state.request.user};
}

std::optional<RestoreState> stateFrom(const Store::RestoreRecord& record) {
  try {
    RestoreState state;
    state.number = record.number;
    state.request = requestFrom(unpacked(record.request));
    state.request.user = record.user;
    readState(unpacked(record.report), state);
    const auto last = static_cast<std::uint32_t>(RestoreStatus::cancelled);
    state.report.status =
        record.status <= last ? static_cast<RestoreStatus>(record.status) : RestoreStatus::unknown;
    return state;
  } catch (const PropertyListError&) {
    return std::nullopt;
  }
}

void addProblem(RestoreReport& report, const std::string& sentence) {
  if (report.problems.size() < kMostRestoreProblems - 1) {
    report.problems.push_back(sentence);
  } else if (report.problems.size() < kMostRestoreProblems) {
    report.problems.emplace_back("Further problems are not listed.");
  }
}

}  // namespace keldane
