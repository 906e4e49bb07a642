// Copying one restored item to where it cannot be moved: to another file system, or by a process that may not
// take it away. Only system calls and buffers on the stack are used here, for the same reason as in
// PlaceItem.h.
#pragma once

#include <sys/stat.h>

#include "daemon/restore/placing/PlaceItem.h"

namespace keldane {

/// The user on whose behalf a copy is made.
enum class CopyAs {
  owner,    ///< the daemon itself: everything is kept, as root the owner too
  stranger  ///< another user: no owner, no setuid, setgid or sticky bit, only what a user may set
};

/// A function that is called at intervals while contents are copied. When it returns false, the copy ends
/// with ECANCELED. It is a plain function, because the child of a fork cannot call any other.
struct CopyPermit {
  bool (*mayGoOn)(const void* context) = nullptr;
  const void* context = nullptr;
};

/// Gives a file or folder the mode, owner, access lists, extended attributes and times of another. Both are
/// open. The times are those of `status`, so reading or writing meanwhile makes no difference. Returns 0 or
/// the first error number.
int copyMetadata(int from, const struct stat& status, int to, CopyAs as);

/// Copies an open regular file to a new file `temporary` in a folder, holes kept, metadata included.
/// `metadata` receives the error number of metadata that could not be set. Returns 0 or an error number;
/// after an error no file is left.
int copyFile(int from, int toFolder, const char* temporary, CopyAs as, const CopyPermit& permit,
             int& metadata);

/// Copies an item of any kind but folders to a place in a folder by way of `temporary`, a name there that
/// nobody else uses. `from` is open; for a symbolic link or special file it is opened with O_PATH. `again`
/// says that an earlier attempt was interrupted. A regular file of equal size and modification time that is
/// already in the place then counts as placed by it.
PlaceResult copyItem(int from, int toFolder, const char* temporary, const char* name, Conflict conflict,
                     CopyAs as, bool again, const CopyPermit& permit);

}  // namespace keldane
