// GNUstep's base library behind plain functions.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Whether the bytes are a property list; what they hold is dropped.
int gnustepDecodes(const void* bytes, size_t size);
/// The value of the bytes, to be given back to gnustepRelease.
void* gnustepValue(const void* bytes, size_t size);
/// The size of the value's bytes in this format; they are dropped.
size_t gnustepEncodes(void* value, int format);
void gnustepRelease(void* value);

#ifdef __cplusplus
}
#endif
