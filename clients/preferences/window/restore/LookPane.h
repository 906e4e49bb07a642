// Shows a stored version of a file before it is restored.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "clients/preferences/window/restore/JobPane.h"
#include "clients/preferences/worker/own/LookFolder.h"

namespace keldane {

/// Fetches a copy into a private folder and opens it with the desktop's program for such files. The copies
/// are removed when the window is closed. Copies that an earlier program left behind are removed when this
/// object is made.
class LookPane : public JobPane {
 public:
  explicit LookPane(DaemonDesk& desk);

  /// `choice` holds the keys of a request that say which version.
  void look(const std::string& path, std::uint64_t version, const PropertyList::Entries& choice);
  /// Whether a job restores such a copy.
  bool isOwn(std::uint32_t job) const { return jobs_.contains(job); }
  void removeCopies();

 private:
  void fetch(PropertyList::Entries request, const std::string& place, const std::string& problem);
  void fetched(const std::string& result, bool isWhole);
  void open(bool isSealed);

  DaemonDesk& desk_;
  const std::shared_ptr<LookFolder> folder_;
  std::string place_;
  std::set<std::uint32_t> jobs_;
};

}  // namespace keldane
