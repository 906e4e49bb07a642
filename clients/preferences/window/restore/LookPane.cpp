#include "clients/preferences/window/restore/LookPane.h"

#include <giomm/appinfo.h>
#include <giomm/file.h>
#include <glibmm/miscutils.h>

#include <stdexcept>

#include "clients/core/words/Printable.h"
#include "clients/preferences/words/Translation.h"
#include "platform/files/Path.h"

namespace keldane {

LookPane::LookPane(DaemonDesk& desk)
    : JobPane(desk, [this](const std::string& result, bool isWhole) { fetched(result, isWhole); }),
      desk_(desk),
      folder_(std::make_shared<LookFolder>(Glib::get_user_cache_dir() + "/keldane/looks")) {
  desk_.aside([folder = folder_]() -> std::function<void()> {
    folder->sweep();
    return [] {};
  });
}

void LookPane::removeCopies() {
  desk_.aside([folder = folder_]() -> std::function<void()> {
    folder->clear();
    return [] {};
  });
}

void LookPane::look(const std::string& path, std::uint64_t version, const PropertyList::Entries& choice) {
  PropertyList::Entries request = {
      {"items", PropertyList::array({PropertyList::dictionary({{"path", path}, {"version", version}})})}};
  request.insert(request.end(), choice.begin(), choice.end());
  say(filled(tr("Fetching a copy of %s…"), printable(path)));
  desk_.aside([this, request, folder = folder_,
               name = std::string(lastPathComponent(path))]() -> std::function<void()> {
    std::string place, problem;
    try {
      place = folder->placeFor(name);
    } catch (const std::runtime_error& error) {
      problem = error.what();
    }
    return [this, request, place, problem] { fetch(request, place, problem); };
  });
}

void LookPane::fetch(PropertyList::Entries request, const std::string& place, const std::string& problem) {
  if (!problem.empty()) {
    say(problem);
    return;
  }
  place_ = place;
  request.emplace_back("exactPath", place);
  desk_.ask("restore:", std::move(request), [this](const OwnerAnswer& answer) {
    if (!answer) {
      say(problemOf(answer));
      return;
    }
    const std::uint64_t job = answer.values["job"].unsignedLongLongValue();
    jobs_.insert(static_cast<std::uint32_t>(job));
    follow(job, {});
  });
}

void LookPane::fetched(const std::string& result, bool isWhole) {
  if (!isWhole) {
    say(result);
    return;
  }
  desk_.aside([this, place = place_]() -> std::function<void()> {
    const bool isSealed = LookFolder::seal(place);
    return [this, isSealed] { open(isSealed); };
  });
}

void LookPane::open(bool isSealed) {
  if (!isSealed) {
    say(tr("This is no file that can be looked at."));
    return;
  }
  say(tr("The copy that is opened cannot be changed, and is removed when this window is closed."));
  Gio::AppInfo::launch_default_for_uri_async(
      Gio::File::create_for_path(place_)->get_uri(), [this](const Glib::RefPtr<Gio::AsyncResult>& result) {
        try {
          Gio::AppInfo::launch_default_for_uri_finish(result);
        } catch (const Glib::Error& error) {
          say(filled(tr("No program has opened the copy: %s"), error.what()));
        }
      });
}

}  // namespace keldane
