// The files of a repository that is a folder of this machine.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/engine/BackupEngine.h"

namespace keldane {

/// Whether a text can be the id, or the beginning of the id, of something in a repository.
bool isIdOrBeginning(std::string_view id);
bool isWholeId(std::string_view id);

/// Replaces a damaged pack by an intact copy from the cache, which keeps packs of folder listings. Returns
/// whether there was one. Throws std::runtime_error when it cannot be written.
bool bringBackFromCache(const std::string& repository, const std::string& cache, const std::string& pack,
                        EngineJob& job);

/// Moves a file of a repository into the folder `aside`, which must exist; one that is gone already is fine.
/// Throws std::runtime_error when it cannot be moved.
void moveAside(const std::string& file, const std::string& aside);

/// The path of a pack's file, "…/data/01/0123…".
std::string fileOfPack(const std::string& repository, const std::string& pack);

/// The total size of all files in bytes. Folders that cannot be read count as empty.
std::uint64_t sizeOfFolder(const std::string& folder);

}  // namespace keldane
