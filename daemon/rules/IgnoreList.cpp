#include "daemon/rules/IgnoreList.h"

#include <fnmatch.h>

#include <algorithm>

#include "platform/files/UserFolders.h"

namespace keldane {

namespace {

constexpr Mark kMarks[] = {Mark::cacheTag, Mark::attribute, Mark::otherFileSystem};

std::string_view trimmed(std::string_view line) {
  const std::size_t first = line.find_first_not_of(" \t\r");
  return first == std::string_view::npos ? std::string_view()
                                         : line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
}

/// The last `count` names of a path, or the whole path when it has no more.
std::string_view lastNames(std::string_view path, std::size_t count) {
  std::size_t slash = path.size();
  for (; count > 0; --count) {
    slash = slash == 0 ? std::string_view::npos : path.rfind('/', slash - 1);
    if (slash == std::string_view::npos) {
      return path;
    }
  }
  return path.substr(slash + 1);
}

}  // namespace

std::string_view IgnoreList::standard() {
  return "@cache-tag\n@attribute\n@other-file-systems\n~/.cache/\n.local/share/Trash/\n.Trash/"
         "\n.Trash-[0-9]*/";
}

std::string_view lineOf(Mark mark) {
  switch (mark) {
    case Mark::none:
      break;
    case Mark::cacheTag:
      return "@cache-tag";
    case Mark::attribute:
      return "@attribute";
    case Mark::otherFileSystem:
      return "@other-file-systems";
  }
  return {};
}

IgnoreList::IgnoreList(std::string_view text) : text_(text) {
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    const auto* mark =
        std::find_if(std::begin(kMarks), std::end(kMarks), [&](Mark any) { return lineOf(any) == line; });
    if (mark != std::end(kMarks)) {
      marks_[static_cast<std::size_t>(*mark)] = true;
    } else if (line.starts_with("~/")) {
      // A daemon that runs as root backs up every user's home folder.
      const std::string below(line.substr(1));
      for (const std::string& home : {homeFolder().string(), std::string("/home/*"), std::string("/root")}) {
        addPattern(line, home + below);
      }
    } else if (!line.empty() && !line.starts_with('#')) {
      addPattern(line, std::string(line));
    }
  }
}

void IgnoreList::addPattern(std::string_view line, const std::string& glob) {
  Pattern pattern{std::string(line), glob, {}, 0, glob.ends_with('/')};
  while (pattern.glob.size() > 1 && pattern.glob.ends_with('/')) {
    pattern.glob.pop_back();
  }
  const std::string_view name = lastNames(pattern.glob, 1);
  pattern.begin = name.substr(0, name.find_first_of("*?[\\"));
  if (!glob.starts_with('/')) {
    pattern.names = 1 + static_cast<std::size_t>(std::count(pattern.glob.begin(), pattern.glob.end(), '/'));
  }
  isForFiles_ = isForFiles_ || !pattern.foldersOnly;
  patterns_.push_back(std::move(pattern));
}

std::string_view IgnoreList::match(std::string_view path, bool isDirectory) const {
  const std::string_view name = lastNames(path, 1);
  for (const Pattern& pattern : patterns_) {
    if ((pattern.foldersOnly && !isDirectory) || !name.starts_with(pattern.begin)) {
      continue;
    }
    const std::string compared(pattern.names == 0 ? path : lastNames(path, pattern.names));
    if (fnmatch(pattern.glob.c_str(), compared.c_str(), FNM_PATHNAME) == 0) {
      return pattern.line;
    }
  }
  return {};
}

}  // namespace keldane
