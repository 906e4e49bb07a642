// The daemon's report on the repository, in rows of words.
#pragma once

#include <array>
#include <string>

#include "clients/preferences/words/Translation.h"
#include "clients/preferences/worker/StatusSnapshot.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

struct RepositoryRow {
  const char* key;    ///< the key of the answer to `repository:` that the row shows
  const char* title;  ///< not yet translated
};

inline constexpr std::array kRepositoryRows{
    RepositoryRow{"location", marked("Place")},
    RepositoryRow{"health", marked("State")},
    RepositoryRow{"size", marked("It takes")},
    RepositoryRow{"snapshots", marked("It holds")},
    RepositoryRow{"lastGoodBackup", marked("Last good backup")},
    RepositoryRow{"lastCheck", marked("Last check")},
    RepositoryRow{"lastDrill", marked("Last trial of a restore")},
    RepositoryRow{"keyFile", marked("Key on this computer")},
};

/// The text of a row; empty when the daemon reports nothing for it.
std::string repositoryText(const std::string& key, const PropertyList& repository);
/// Whether nothing was set up yet: no file is stored or waits, and there is no repository, or only the one
/// that the daemon has made for itself.
bool isUntouched(const StatusSnapshot& status, const PropertyList& repository);

}  // namespace keldane
