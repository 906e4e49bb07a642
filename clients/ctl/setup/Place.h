// The place of a repository as a command line gives it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "platform/plist/PropertyList.h"

namespace keldane {

/// A chosen place, and what the storage program needs to reach it.
struct Place {
  std::string location;
  PropertyList::Entries environment, options;
  /// The keys of a request for this place.
  PropertyList::Entries request() const;
};

/// The options of a command that name a place.
struct PlaceOptions {
  std::string location;  ///< from an option or argument that the command itself adds
  std::string locationFile, environmentFile;
  std::vector<std::string> options;

  void addTo(CLI::App& command);
  bool isGiven() const { return !location.empty() || !locationFile.empty(); }
  /// The complete place: a missing password is asked for at a terminal. Throws CommandFailure for a location
  /// with a secret on the command line and for files that cannot be read.
  Place place() const;
};

}  // namespace keldane
