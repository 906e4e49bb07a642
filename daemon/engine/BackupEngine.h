// The interface to the storage of file contents. ResticEngine implements it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace keldane {

class RepositoryFiles;

/// The condition of the repository, as the last call found it.
enum class Health {
  ready,            ///< the call has done its work
  notSetUp,         ///< no repository was ever made or named
  missing,          ///< there was one, and it is gone; it is never made anew unless a user asks for it
  otherRepository,  ///< the place holds a repository with another id
  wrongKey,         ///< the key does not open it
  notConnected,     ///< the external disk is not there
  unreachable,      ///< the network or the server is away
  denied,           ///< the system or the server refuses access
  locked,           ///< another computer or a crash holds a lock
  full,             ///< no room is left, or the quota is used up
  damaged,          ///< stored data was changed or lost
  engineMissing,    ///< the storage program is not installed
  engineTooOld,     ///< the storage program lacks what is needed
  cancelled,        ///< the caller gave up
  failed            ///< anything else; the detail tells more
};

/// The name of a health for clients, which is that of the enumerator.
const char* healthWord(Health health);

/// The result of one call: the condition of the repository and, unless that is `ready`, a sentence for
/// people. The sentence never holds a secret.
struct EngineAnswer {
  Health health = Health::ready;
  std::string detail;
  explicit operator bool() const { return health == Health::ready; }
};

/// Lets any thread cancel a running call. One job serves one call at a time.
struct EngineJob {
  std::atomic<bool> cancelled = false;
  std::atomic<bool> lowPriority = false;  ///< read when the call begins
};

/// The request for one snapshot.
struct StoreRequest {
  std::vector<std::string> targets;  ///< absolute paths of files, and of folders with their contents
  std::vector<std::string> tags;
  std::string parent;  ///< the snapshot whose unchanged files need not be read; empty: read every file
};

/// The functions that are called while a snapshot is made, on the calling thread.
struct StoreObserver {
  /// The engine has read a file. The file counts as stored only after the whole call has succeeded.
  /// `unchanged` says that the parent has the same file. Bytes of a name that are not UTF-8 read as U+FFFD.
  std::function<void(const std::string& path, bool unchanged)> took;
  /// A file could not be read, with the reason.
  std::function<void(const std::string& path, const std::string& reason)> couldNotRead;
  /// Files and bytes done so far, and one of the files at hand (may be empty).
  std::function<void(std::uint64_t files, std::uint64_t bytes, const std::string& current)> progress;
};

/// The result of a call that stores. `ready` with a snapshot id means that everything that was read is
/// stored. `ready` without one means that every target was gone, so there was nothing to store.
struct StoreAnswer : EngineAnswer {
  std::string snapshot;          ///< the beginning of its id, at least 8 hexadecimal digits
  bool someUnreadable = false;   ///< files were left out
  std::uint64_t bytesAdded = 0;  ///< the approximate growth of the repository
};

/// A snapshot as the repository lists it.
struct Snapshot {
  std::string id;   ///< whole
  double time = 0;  ///< seconds since the UNIX epoch
  std::string host;
  std::vector<std::string> tags;
  std::string tree;  ///< a hash of everything in it
};

enum class EntryKind { file, folder, link, other };

/// An item in a snapshot.
struct StoredEntry {
  std::string path;
  EntryKind kind = EntryKind::other;
  std::uint64_t size = 0;          ///< bytes
  std::int64_t modified = 0;       ///< nanoseconds since the UNIX epoch
  std::int64_t statusChanged = 0;  ///< the same
  uid_t owner = 0;
  gid_t group = 0;
  mode_t mode = 0;  ///< permission bits
};

/// A found item and the snapshot that holds it.
struct FoundEntry {
  std::string snapshot;
  StoredEntry entry;
};

/// A key of the repository.
struct KeyRecord {
  std::string id;      ///< the beginning of it, at least 8 hexadecimal digits
  bool inUse = false;  ///< it is the one that the engine opens the repository with
};

/// The result of a check of the repository.
struct CheckAnswer : EngineAnswer {
  std::vector<std::string> damagedPacks;  ///< their ids
  /// The snapshots that lost a list of names, so that a part of them cannot be restored. They are reported
  /// when no pack is damaged any more. Checks fail until these snapshots are forgotten.
  std::vector<std::string> damagedSnapshots;
  std::vector<std::string> messages;  ///< the storage program's messages, for people
};

/// One repository. Calls block until they are done; several may run at once on several threads, and the
/// caller keeps `forget` and `prune` apart from the others. A call never makes a repository, except
/// `initialize`.
class BackupEngine {
 public:
  virtual ~BackupEngine() = default;

  /// Opens the repository and compares its id with the one that is kept.
  virtual EngineAnswer probe(EngineJob& job) = 0;
  /// Makes a repository where none was ever made and nothing is in the way, and keeps its id. It does nothing
  /// when the repository with the kept id is already there.
  virtual EngineAnswer initialize(EngineJob& job) = 0;
  /// The id of the repository that is there, whatever id is kept. This serves to take over a repository of
  /// another computer.
  virtual EngineAnswer repositoryId(std::string& id, EngineJob& job);

  virtual StoreAnswer store(const StoreRequest& request, const StoreObserver& observer, EngineJob& job) = 0;

  /// All snapshots of this computer's number, or of all computers; oldest first.
  virtual EngineAnswer snapshots(bool ofAllComputers, std::vector<Snapshot>& found, EngineJob& job) = 0;
  using Visit = std::function<void(const StoredEntry& entry)>;
  /// The contents of a snapshot, or its contents at and below a path.
  virtual EngineAnswer list(const std::string& snapshot, const std::string& path, const Visit& visit,
                            EngineJob& job) = 0;
  /// The items that match a pattern of `*`, `?` and `[…]`, for names or for absolute paths; those of the
  /// newest snapshots come first. Every file is found. A folder may be left out when a folder with another
  /// name has the same content.
  virtual EngineAnswer find(const std::string& pattern, std::vector<FoundEntry>& found, EngineJob& job) = 0;
  /// Writes a stored file's bytes to a descriptor. The written bytes are whole only when the answer is
  /// `ready`.
  virtual EngineAnswer fetch(const std::string& snapshot, const std::string& path, int descriptor,
                             EngineJob& job) = 0;
  /// Restores items, folders with all below them, into a folder: `/a/b` becomes `folder/a/b`, with mode,
  /// times, extended attributes and, as root, owner. `problems` receives a line, "path: reason", for each
  /// item that is not as it was. After `ready`, only mode, times, attributes or owner of those items differ.
  /// After any other answer, files whose content could not be read are missing, and other items may be
  /// missing.
  virtual EngineAnswer restore(const std::string& snapshot, const std::vector<std::string>& paths,
                               const std::string& folder, std::vector<std::string>& problems,
                               EngineJob& job) = 0;

  /// Forgets snapshots by id. Data that only they held is still there until `prune`.
  virtual EngineAnswer forget(const std::vector<std::string>& snapshots, EngineJob& job) = 0;
  /// Frees the space of data that no snapshot holds, and reduces the engine's cache to 1 GiB.
  virtual EngineAnswer prune(EngineJob& job) = 0;
  /// Removes locks that are stale; those of living programs stay.
  virtual EngineAnswer unlock(EngineJob& job) = 0;
  /// Checks the structure, and the stored bytes of `part` of `parts` (0 of 0: none; 1 of 1: all).
  virtual CheckAnswer check(unsigned part, unsigned parts, EngineJob& job) = 0;
  /// The files that have a part in damaged packs, one entry for each snapshot that holds the file, with path
  /// and kind only. A folder in the list stands for everything below it, because its list of names is
  /// damaged.
  virtual EngineAnswer filesInPacks(const std::vector<std::string>& packs, std::vector<FoundEntry>& found,
                                    EngineJob& job) = 0;
  /// Takes damaged packs out of use, so that the next store writes their contents again, and makes the index
  /// anew. In a repository in a folder it also removes snapshots that cannot be read. It is called without
  /// packs when the index is damaged.
  virtual EngineAnswer dropPacks(const std::vector<std::string>& packs, EngineJob& job) = 0;
  /// The size of the repository in bytes.
  virtual EngineAnswer size(std::uint64_t& bytes, EngineJob& job) = 0;
  /// Adds a second key, whose text is a person's passphrase.
  virtual EngineAnswer addKey(const std::string& passphrase, EngineJob& job) = 0;
  virtual EngineAnswer keys(std::vector<KeyRecord>& found, EngineJob& job);
  /// Removes a key, which must not be the one in use.
  virtual EngineAnswer removeKey(const std::string& id, EngineJob& job);

  /// Makes a repository as `initialize` does; it will split files into the same parts as another one.
  virtual EngineAnswer initializeLike(const RepositoryFiles& other, EngineJob& job);
  /// Copies every snapshot of another repository, of all computers, that is not here yet. `copied` is called
  /// with the number of them that are here now.
  virtual EngineAnswer copyFrom(const RepositoryFiles& other, const std::function<void(std::size_t)>& copied,
                                EngineJob& job);
};

}  // namespace keldane
