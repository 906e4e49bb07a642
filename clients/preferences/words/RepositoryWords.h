// What the daemon tells of the repository, in rows of words.
#pragma once

#include <array>
#include <string>

#include "clients/preferences/words/Translation.h"
#include "clients/preferences/worker/StatusSnapshot.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

struct RepositoryRow {
  const char* key;    ///< of the answer to `repository:` that the row is about
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

/// What a row says; empty when the daemon tells nothing of it.
std::string repositoryText(const std::string& key, const PropertyList& repository);
/// Whether nobody has set anything up: nothing is stored or waits, and there is no repository, or only the
/// one that the daemon has made for itself.
bool isUntouched(const StatusSnapshot& status, const PropertyList& repository);

}  // namespace keldane
