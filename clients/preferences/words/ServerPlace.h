// Makes a place on a server from the fields that a person fills in.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "clients/preferences/words/Translation.h"
#include "platform/plist/PropertyList.h"

namespace keldane {

/// The location of a repository in the daemon's format.
struct ServerPlace {
  std::string location;
  PropertyList::Entries environment;
};

/// A kind of server and what it asks for. Titles are not yet translated; an unused one is null.
struct ServerKind {
  const char* title;
  std::array<const char*, 2> fields;
  const char* secret;
};

inline constexpr std::array kServers{
    ServerKind{marked("A computer that ssh reaches (SFTP)"),
               {marked("Server, as for ssh (user@host)"), marked("Folder on the server")},
               nullptr},
    ServerKind{marked("A REST server of restic"),
               {marked("Address (https://host:port/name)"), marked("User name (empty for none)")},
               marked("Password")},
    ServerKind{marked("S3, or what speaks like it"),
               {marked("Address and bucket (host/bucket)"), marked("Access key ID")},
               marked("Secret access key")},
    ServerKind{
        marked("Another one that restic knows"), {marked("Location, as restic takes it"), nullptr}, nullptr},
};

/// Makes a place from the fields. `problem` becomes a sentence when something is missing, and empty
/// otherwise.
ServerPlace serverPlace(std::size_t kind, const std::vector<std::string>& fields, const std::string& secret,
                        std::string& problem);

}  // namespace keldane
