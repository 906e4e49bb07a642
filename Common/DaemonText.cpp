#include "Common/DaemonText.h"

#include "platform/text/Translation.h"

namespace keldane {

namespace {

// The first entry that fits is used, so a special text stands before a more general one that fits the same
// sentences.
constexpr KnownText kDaemonTexts[] = {
    known("%s file", "%s files"),
    // The states of files and folders.
    known("Excluded by policy"),
    known("Not selected for backup"),
    known("Partly selected for backup"),
    known("New"),
    known("Changed since last backup"),
    known("Waiting to be looked at"),
    known("Waiting to be backed up"),
    known("Being backed up"),
    known("Being backed up: %s"),
    known("Could not be backed up"),
    known("Could not be backed up: %s"),
    known("Backed up"),
    known("Deleted here, still in the backup"),
    known("Pipe, goes with its folder"),
    known("Device, goes with its folder"),
    known("Socket, never backed up"),
    known("On a disk that is not connected"),
    known("Goes with its folder"),
    // The reasons why they are in the backup or not.
    knownWithNames("It lies outside of %s, and only what is in there can be backed up."),
    knownWithNames("%s and all below it is kept out of the backup."),
    known("A rule of its own includes it."),
    known("A rule of its own excludes it."),
    known("The rule for files without a type includes it."),
    known("The rule for files without a type excludes it."),
    knownWithNames("The rule for files of the type %s includes it."),
    knownWithNames("The rule for files of the type %s excludes it."),
    knownWithNames("The rule of the folder %s includes it."),
    knownWithNames("The rule of the folder %s excludes it."),
    knownWithNames("The list of what is ignored leaves out %s, by its line \"%s\"."),
    known("No rule includes it."),
    // The activity of the daemon.
    known("Backup is switched off"),
    known("Paused"),
    known("Reading the repository: %s of %s backups"),
    known("The repository cannot be used"),
    known("Recovered: nothing is backed up or forgotten until you resume"),
    known("Automatic backup is off: %s waits"),
    known("Automatic backup is off: %s wait"),
    known("Resting: %s; %s to go"),
    known("Looking for what is to be backed up"),
    known("Looking for what is to be backed up: %s so far"),
    known("Backing up: %s to go"),
    known("Up to date"),
    known("Up to date, but %s could not be backed up"),
    known("The battery is at %s"),
    known("The computer saves power"),
    known("The network is metered"),
    known("Nothing has been backed up for %s day.", "Nothing has been backed up for %s days."),
    known("The last good backup is %s day old.", "The last good backup is %s days old."),
    known("The repository can be used again."),
    knownWithNames("No room is left for rules and settings: the disk of %s is full."),
    known("Rules and settings cannot be kept in %s: %s."),
    // The state of the repository.
    known("No repository was set up yet. Choose where the backup is to be."),
    known("The repository is gone. Bring it back, or set up a new one."),
    known("The repository is gone: %s. Bring it back, or set up a new one."),
    known("Another repository than that of this computer is at its place. Bring the right one back, or set "
          "this one up."),
    known("The key does not open the repository. Import the key that belongs to it."),
    known("The disk with the backup is not connected. Plug it in."),
    known("The repository cannot be reached. Check the network and the server."),
    known("The repository cannot be reached: %s. Check the network and the server."),
    known("The repository cannot be used, as access is refused. Check the permissions and the account."),
    known("The repository cannot be used, as access is refused: %s. Check the permissions and the account."),
    known("The repository is in use by another program or computer. It is tried again; nothing needs to be "
          "done."),
    known("The repository is in use by another program or computer: %s. It is tried again; nothing needs to "
          "be done."),
    known("No room is left where the repository is. Make room there, or keep fewer versions."),
    known("No room is left where the repository is: %s. Make room there, or keep fewer versions."),
    known("Stored data is damaged. Run a check to have it stored anew."),
    known("Stored data is damaged: %s. Run a check to have it stored anew."),
    known("The storage program restic is not installed. Install the package restic."),
    known("The storage program restic is too old: %s. Install version 0.14 or newer."),
    known("The work was cancelled."),
    known("The storage program failed."),
    known("The storage program failed: %s."),
    known("The quota for the backup is used up. Raise it, or back up less."),
    knownWithNames("there is none in %s"),
    knownWithNames("a part of it is not there any more, %s"),
    knownWithNames("the folder %s is not empty, so no repository is made in it"),
    known("the storage program stands still"),
    known("signal %s ended it"),
    known("exit status %s"),
    known("something interrupted it"),
    // Checks and drills.
    known("%s Since then everything that is selected was stored anew."),
    known("The structure of the repository is whole."),
    known("The structure and the stored bytes that were read are whole."),
    known("The repository is damaged: %s files have lost a part of what was stored and are stored anew."),
    known("%s of %s sample files could not be had back as they were stored."),
    known("%s sample files were compared byte by byte with the disk, %s with the hashes of the repository."),
    known("The drill was cancelled."),
    // The reasons why files are not stored.
    known("It cannot be read."),
    known("It is gone."),
    known("Its path is longer than the system allows."),
    known("The folder cannot be read: %s."),
    known("What the repository has of it is damaged, and could not be stored anew."),
    known("The storage program passed it over."),
    // Requests that are refused.
    known("The daemon could not do this: %s"),
    known("The daemon's own folder cannot be written."),
    knownWithNames("The administrator of this computer has fixed the place of the backup: %s."),
    knownWithNames("The administrator of this computer has fixed \"%s\"."),
    known("No repository has been set up yet."),
    known("The repository holds no backup of that computer."),
    known("The location of a repository cannot begin or end with a blank."),
    known("The location of a repository must be an absolute path or name a service."),
    known("A key is one line that neither begins nor ends with a blank."),
    known("A passphrase is one line that neither begins nor ends with a blank."),
    known("Nothing was named that could be restored."),
    known("The target is no usable path."),
    // Changes of the key and of the place.
    known("The new key is in use, but the former one still opens the backup. It is taken out of use when the "
          "daemon begins the next time. %s"),
    known("The repository does not tell which of its keys is in use."),
    known("The backup is just being moved to another place."),
    known("The backup is kept there already."),
    known("Not every version has come along. The backup stays where it is."),
    knownWithNames("Both places need the option %s, with another value each. What is stored cannot be copied "
                   "between them."),
    knownWithNames(
        "Both places need %s, with another value each, and one run of the storage program has room "
        "for only one. What is stored cannot be copied between them."),
    known("The path of the folder is not usable."),
    // Restores.
    knownWithNames("%s is not restored: the job was cancelled."),
    knownWithNames("%s is not restored: it is not in the snapshot that should have it."),
    knownWithNames("%s is not restored: it belongs to another user."),
    knownWithNames("%s is not restored: only the administrator can make such special files."),
    known("%s is not restored: it has %s bytes, and %s were stored."),
    knownWithNames("%s is not restored: a symbolic link is in its place, and links are not followed."),
    knownWithNames("%s is not restored: its place is taken by something that is no folder."),
    knownWithNames("%s is not restored: its place is taken by a folder, and folders are not replaced."),
    knownWithNames("%s is not restored: no name beside what is there is free."),
    known("%s is not restored: %s."),
    known("%s is restored, but not all of its mode, owner, times and attributes: %s."),
    known("Some items could not be read from the repository."),
    known("Not everything could be restored: %s."),
    known("Nothing can be restored to %s: %s."),
    known("Nothing can be written to %s: %s."),
    knownWithNames("Nothing is stored of %s as it was at that time."),
    knownWithNames("Nothing is stored of %s."),
    known("What belongs to other users is left out."),
    known("Nothing could be restored."),
    known("Further problems are not listed."),
    known("The daemon could not go on: %s."),
};

}  // namespace

std::string daemonText(std::string_view text) { return translated(text, kDaemonTexts); }

}  // namespace keldane
