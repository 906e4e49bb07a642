#include "daemon/engine/restic/output/ResticLines.h"

#include <algorithm>
#include <array>
#include <system_error>

#include "daemon/engine/restic/PackFiles.h"
#include "daemon/engine/restic/output/JsonFields.h"

namespace keldane {
namespace {

/// "Permission denied" for "open /a/file: permission denied", because the file is named elsewhere.
std::string withoutItem(std::string text, const std::string& item) {
  const std::string named = " " + item + ": ";
  if (const std::size_t found = text.find(named); !item.empty() && found == text.find(' ')) {
    text.erase(0, found + named.size());
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') {
      text[0] = static_cast<char>(text[0] - 'a' + 'A');
    }
  }
  return text;
}

/// The reason in an `error` message: its own text, or the text of the system's error number. Old versions
/// leave most texts out.
std::string reasonIn(const Json& message) {
  const auto error = message.find("error");
  if (error != message.end() && error->is_object()) {
    if (const std::string text = textOf(*error, "message"); !text.empty()) {
      return withoutItem(text, textOf(message, "item"));
    }
    if (const int number = numberOf<int>(*error, "Err"); number > 0) {
      return std::generic_category().message(number);
    }
  }
  return "It cannot be read.";
}

constexpr std::string_view kVanished = " does not exist, skipping";

}  // namespace

/// Reads the line that a first backup prints for each file, quickly, when the name has no escaped characters.
bool BackupReader::takePlainFile(std::string_view line) {
  constexpr std::string_view kAction = R"({"message_type":"verbose_status","action":")";
  constexpr std::string_view kItem = R"(","item":")";
  if (!line.starts_with(kAction) || !line.ends_with('}')) {
    return false;
  }
  line.remove_prefix(kAction.size());
  const std::string_view action = line.substr(0, line.find('"'));
  line.remove_prefix(action.size());
  if (!line.starts_with(kItem) || (action != "new" && action != "unchanged" && action != "modified")) {
    return false;
  }
  line.remove_prefix(kItem.size());
  const std::size_t end = line.find_first_of("\"\\");
  if (end == 0 || end == std::string_view::npos || line[end] != '"') {
    return false;
  }
  if (observer_.took && line[end - 1] != '/') {
    observer_.took(std::string(line.substr(0, end)), action == "unchanged");
  }
  return true;
}

void BackupReader::outputLine(std::string_view line) {
  if (takePlainFile(line)) {
    return;
  }
  const Json message = parsed(line);
  if (!message.is_object()) {
    return;
  }
  const std::string type = textOf(message, "message_type");
  if (type == "verbose_status") {
    const std::string action = textOf(message, "action");
    const std::string item = textOf(message, "item");
    const bool isUnchanged = action == "unchanged";
    if (observer_.took && !item.ends_with('/') && (isUnchanged || action == "new" || action == "modified")) {
      observer_.took(item, isUnchanged);
    }
  } else if (type == "status" && observer_.progress) {
    std::string current;
    if (const auto files = message.find("current_files");
        files != message.end() && files->is_array() && !files->empty() && files->front().is_string()) {
      current = files->front().get<std::string>();
    }
    observer_.progress(numberOf<std::uint64_t>(message, "files_done"),
                       numberOf<std::uint64_t>(message, "bytes_done"), current);
  } else if (type == "summary") {
    snapshot_ = textOf(message, "snapshot_id");
    bytesAdded_ = numberOf<std::uint64_t>(message, "data_added");
  } else if (type == "error") {
    errorLine(line);
  }
}

bool BackupReader::errorLine(std::string_view line) {
  if (line.starts_with('/') && line.ends_with(kVanished)) {
    tellUnreadable(std::string(line.substr(0, line.size() - kVanished.size())), "It is gone.");
    return true;
  }
  const Json message = line.starts_with('{') ? parsed(line) : Json();
  if (!message.is_object() || textOf(message, "message_type") != "error") {
    return false;
  }
  if (textOf(message, "during") != "scan") {  // the archiver reports the scan's unreadable files again
    const std::string path = textOf(message, "item");
    tellUnreadable(path, reasonIn(message));
  }
  return true;
}

void BackupReader::tellUnreadable(const std::string& path, const std::string& reason) {
  someUnreadable_ = true;
  if (observer_.couldNotRead) {
    observer_.couldNotRead(path, reason);
  }
}

void CheckReader::errorLine(std::string_view line) {
  constexpr std::string_view kMismatch = "Pack ID does not match, want ";
  constexpr std::string_view kPack = "pack ";
  constexpr std::string_view kRepair = "restic repair packs ";
  if (line.starts_with("error: ") || line.starts_with("Error: ")) {
    line.remove_prefix(7);
  }
  if (const std::size_t found = line.find(kMismatch); found != std::string_view::npos) {
    add(line.substr(found + kMismatch.size(), 64));
  } else if (line.starts_with(kPack) && line.find("not referenced in any index") == std::string_view::npos &&
             line.find("contained in several indexes") == std::string_view::npos) {
    add(line.substr(kPack.size(), 64));
  } else if (const std::size_t repair = line.find(kRepair); repair != std::string_view::npos) {
    for (line.remove_prefix(repair + kRepair.size()); line.size() >= 64;
         line.remove_prefix(std::min(line.size(), std::size_t{65}))) {
      add(line.substr(0, 64));
    }
  }
}

void CheckReader::add(std::string_view pack) {
  if (isWholeId(pack) && std::ranges::find(packs_, pack) == packs_.end()) {
    packs_.emplace_back(pack);
  }
}

std::optional<ItemProblem> problemFromLine(std::string_view line) {
  constexpr std::string_view kBegin = "ignoring error for ";
  static constexpr auto kMetadata =
      std::to_array<std::string_view>({"chown", "lchown", "chmod", "utimes", "utimensat", "utime", "xattr",
                                       "chtimes", "operation not supported"});
  if (!line.starts_with(kBegin)) {
    return std::nullopt;
  }
  line.remove_prefix(kBegin.size());
  const std::size_t colon = line.find(": ");
  ItemProblem problem;
  problem.path = line.substr(0, colon);
  problem.reason = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 2);
  std::string lower = problem.reason;
  std::ranges::transform(lower, lower.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
  });
  problem.onlyMetadata =
      std::ranges::any_of(kMetadata, [&](std::string_view sign) { return lower.starts_with(sign); });
  return problem;
}

std::string fatalText(std::string_view line) {
  const Json message = line.starts_with('{') ? parsed(line) : Json();
  return message.is_object() && textOf(message, "message_type") == "exit_error" ? textOf(message, "message")
                                                                                : std::string(line);
}

std::string unreadableSnapshot(std::string_view line) {
  constexpr std::string_view kBegin = "<snapshot/";
  const std::size_t begin = line.find(kBegin);
  if (begin == std::string_view::npos || line.find("invalid data returned") == std::string_view::npos ||
      line.find("returned error, retrying") != std::string_view::npos) {
    return {};
  }
  line.remove_prefix(begin + kBegin.size());
  const std::string_view id = line.substr(0, line.find('>'));
  return isIdOrBeginning(id) ? std::string(id) : std::string();
}

std::string snapshotWithoutTree(std::string_view line) {
  constexpr std::string_view kBegin = " ... which belongs to snapshot ";
  const std::size_t begin = line.find(kBegin);
  const std::string_view id =
      begin == std::string_view::npos ? std::string_view() : line.substr(begin + kBegin.size());
  return isIdOrBeginning(id) ? std::string(id) : std::string();
}

}  // namespace keldane
