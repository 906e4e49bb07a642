#include "daemon/DefaultPlaces.h"

#include "platform/files/UserFolders.h"

namespace keldane {

namespace fs = std::filesystem;

DefaultPlaces placesOfUser() {
  const fs::path name = fs::path("keldane") / "store.sqlite";
  const fs::path store = dataFolders().front() / name, earlier = homeFolder() / ".local" / "share" / name;
  std::error_code error;
  const bool isElsewhere = !fs::exists(store, error) && fs::exists(earlier, error);
  const std::optional<fs::path> runtime = runtimeFolder();
  return {runtime ? (*runtime / "keldane" / "keldaned.sock").string() : std::string(),
          (isElsewhere ? earlier : store).string()};
}

DefaultPlaces placesOfSystem() { return {"/run/keldane/keldaned.sock", "/var/lib/keldane/store.sqlite"}; }

}  // namespace keldane
