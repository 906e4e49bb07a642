// The description that each snapshot holds of itself, so that the catalogue can be made anew from the
// repository only.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <optional>
#include <string>

#include "daemon/store/Store.h"

namespace keldane {

/// The name of the manifest file in each snapshot.
inline constexpr const char* kManifestName = "keldane-manifest.jsonl";

/// The first line of a manifest: one JSON object.
struct ManifestHead {
  std::uint32_t computerNumber = 0;
  std::uint32_t number = 0;  ///< the number of the backup, which is the highest number that was ever used
  double date = 0;           ///< the time of the backup, seconds since the UNIX epoch
  bool full = false;
  std::string prefix;  ///< precedes the paths of gathered files
  std::map<std::string, bool> rules;
  std::map<std::string, std::uint32_t> types;
  std::map<std::string, std::string> settings, profile;
};

/// One further line: a file whose version an earlier backup stored and the snapshot also holds.
struct ManifestFile {
  std::string path;
  FileState state;
  std::uint32_t version = 0;
  double date = 0;
};

/// Writes a manifest of mode 0600. `files` is called once and calls its argument for each further line.
/// Throws std::runtime_error when the file cannot be written.
using ManifestFiles = std::function<void(const std::function<void(const ManifestFile&)>& write)>;
void writeManifest(const std::string& file, const ManifestHead& head, const ManifestFiles& files);

/// Reads a manifest; absent when its first line is no head. Further lines that cannot be read are ignored.
std::optional<ManifestHead> readManifest(std::istream& stream,
                                         const std::function<void(const ManifestFile&)>& file);

}  // namespace keldane
