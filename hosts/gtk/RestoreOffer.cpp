#include "hosts/gtk/RestoreOffer.h"

#include "hosts/gtk/StatusHost.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

bool areWanted() {
  static const bool canOpen = canOpenRestoreWindow();
  return canOpen && statusOptions().restoreEntries;
}

void openOffered(gpointer /*item*/, gpointer data) {
  const auto* offer = static_cast<const RestoreOffer*>(data);
  openRestoreWindow(offer->option, offer->path);
}

}  // namespace

std::optional<RestoreOffer> previousVersionOffer(const std::vector<GFile*>& files) {
  if (files.size() != 1 || !areWanted()) {
    return std::nullopt;
  }
  const std::optional<FileStatus> status = statusToShow(files.front());
  if (!status || status->lastBackup == 0) {
    return std::nullopt;
  }
  return RestoreOffer{"Keldane::Previous", tr("Restore Previous Version…"), "--restore",
                      *pathOfOwnFile(files.front())};
}

std::optional<RestoreOffer> missingFilesOffer(GFile* folder) {
  if (!areWanted()) {
    return std::nullopt;
  }
  const std::optional<FileStatus> status = statusToShow(folder);
  if (!status || status->text.empty()) {
    return std::nullopt;  // no daemon, or nothing for this user to know
  }
  return RestoreOffer{"Keldane::Missing", tr("Restore Missing Files…"), "--restore-missing",
                      *pathOfOwnFile(folder)};
}

void connectOffer(gpointer item, const RestoreOffer& offer) {
  g_signal_connect_data(
      item, "activate", G_CALLBACK(openOffered), new RestoreOffer(offer),
      [](gpointer data, GClosure*) { delete static_cast<RestoreOffer*>(data); },
      static_cast<GConnectFlags>(0));
}

}  // namespace keldane
