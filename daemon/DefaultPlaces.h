// The default places of socket and store.
#pragma once

#include <string>

namespace keldane {

/// Absolute paths; an empty one is not known.
struct DefaultPlaces {
  std::string socket, store;
};

/// The places for a daemon of this process's user: the socket in the user's runtime folder, the store in the
/// user's data folder. An existing store in ~/.local/share goes on being used where $XDG_DATA_HOME names
/// another folder without one. The socket is not known when others could write to the runtime folder.
DefaultPlaces placesOfUser();
/// The places for one daemon that serves every user of the computer.
DefaultPlaces placesOfSystem();

}  // namespace keldane
