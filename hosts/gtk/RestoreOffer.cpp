#include "hosts/gtk/RestoreOffer.h"

#include "hosts/gtk/StatusHost.h"
#include "platform/text/Translation.h"

namespace keldane {

namespace {

bool areWanted() {
  static const bool canOpen = canOpenRestoreWindow();
  return canOpen && statusOptions().restoreEntries;
}

/// The offer for a file. Absent while nothing is known of the file.
std::optional<RestoreOffer> offer(const char* name, GFile* file,
                                  const RestoreEntry* (*entryFor)(const FileStatus&)) {
  const std::optional<FileStatus> status = areWanted() ? statusToShow(file) : std::nullopt;
  const RestoreEntry* entry = status ? entryFor(*status) : nullptr;
  return entry == nullptr ? std::nullopt : std::optional(RestoreOffer{name, entry, *pathOfOwnFile(file)});
}

void openOffered(gpointer /*item*/, gpointer data) {
  const auto* offer = static_cast<const RestoreOffer*>(data);
  openRestoreWindow(offer->entry->option, offer->path);
}

}  // namespace

std::optional<RestoreOffer> previousVersionOffer(const std::vector<GFile*>& files) {
  return files.size() == 1 ? offer("Keldane::Previous", files.front(), previousVersionEntry) : std::nullopt;
}

std::optional<RestoreOffer> missingFilesOffer(GFile* folder) {
  return offer("Keldane::Missing", folder, missingFilesEntry);
}

void connectOffer(gpointer item, const RestoreOffer& offer) {
  g_signal_connect_data(
      item, "activate", G_CALLBACK(openOffered), new RestoreOffer(offer),
      [](gpointer data, GClosure*) { delete static_cast<RestoreOffer*>(data); },
      static_cast<GConnectFlags>(0));
}

}  // namespace keldane
