// Puts one restored item in its place. Only system calls and buffers on the stack are used here, so that a
// child process that was forked from a program with many threads may call it.
#pragma once

#include <sys/types.h>

#include <climits>

#include "daemon/restore/placing/Conflict.h"

namespace keldane {

struct PlaceResult {
  enum Kind { placed, skipped, failed };
  Kind kind = placed;
  int error = 0;     ///< the error number of what failed; EISDIR: a folder is in the way
  int metadata = 0;  ///< the error number of metadata that could not be restored; the item itself is placed
};

/// Writes the name that a file gets beside one that is to be kept: "letter (restored).txt" for the first
/// attempt, "letter (restored 2).txt" for the second. A name that would be too long loses the end of its
/// stem.
void restoredName(const char* name, unsigned attempt, char (&out)[NAME_MAX + 1]);

/// Moves a file, link or special file from one folder of a file system to another in one step. An item that
/// already has the name is treated as `conflict` says. EXDEV when the folders lie on different file systems.
PlaceResult placeItem(int fromFolder, const char* fromName, int toFolder, const char* name,
                      Conflict conflict);

/// Moves an item of any kind to a name that is free. Returns 0 or the error number, which is EEXIST when the
/// name is taken.
int moveToFreeName(int fromFolder, const char* fromName, int toFolder, const char* name);

/// Sets the permissions of an item that is no link, in a folder that only this process changes.
bool setModeIn(int folder, const char* name, mode_t mode);

/// Opens a folder below another without following a link. Returns -1 with the error in errno: ELOOP for a
/// symbolic link, ENOTDIR for any other item that is no folder. `flags` are O_PATH or O_RDONLY.
int openFolderIn(int folder, const char* name, int flags);

}  // namespace keldane
