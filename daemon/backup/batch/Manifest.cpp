#include "daemon/backup/batch/Manifest.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/files/Descriptor.h"
#include "platform/text/Unicode.h"

namespace keldane {

namespace {

using Json = nlohmann::json;

constexpr int kManifestFormat = 1;

}  // namespace

void writeManifest(const std::string& file, const ManifestHead& head, const ManifestFiles& files) {
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  { const Descriptor made(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600)); }
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << Json{{"keldaneManifest", kManifestFormat},
                 {"computerNumber", head.computerNumber},
                 {"number", head.number},
                 {"date", head.date},
                 {"full", head.full},
                 {"prefix", head.prefix},
                 {"rules", head.rules},
                 {"types", head.types},
                 {"settings", head.settings},
                 {"profile", head.profile}}
                .dump(-1, ' ', false, Json::error_handler_t::replace)
         << '\n';
  files([&](const ManifestFile& entry) {
    // JSON cannot hold any other name. Such a file counts as first stored by this backup.
    if (isValidUtf8(entry.path)) {
      stream << Json::array({entry.path, entry.version, entry.state.size, entry.state.modified,
                             entry.state.statusChanged, entry.date})
                    .dump()
             << '\n';
    }
  });
  stream.flush();
  if (!stream) {
    throw std::runtime_error("The manifest " + file + " cannot be written.");
  }
}

std::optional<ManifestHead> readManifest(std::istream& stream,
                                         const std::function<void(const ManifestFile&)>& file) {
  std::string line;
  std::getline(stream, line);
  ManifestHead head;
  try {
    const Json json = Json::parse(line);
    if (json.at("keldaneManifest").get<int>() > kManifestFormat) {
      return std::nullopt;
    }
    head = {json.at("computerNumber"), json.at("number"),   json.at("date"),
            json.at("full"),           json.at("prefix"),   json.at("rules"),
            json.at("types"),          json.at("settings"), json.at("profile")};
  } catch (const Json::exception&) {
    return std::nullopt;
  }
  while (std::getline(stream, line)) {
    try {
      const Json json = Json::parse(line);
      file({json.at(0), {json.at(2), json.at(3), json.at(4)}, json.at(1), json.at(5)});
    } catch (const Json::exception&) {
      continue;
    }
  }
  return head;
}

}  // namespace keldane
