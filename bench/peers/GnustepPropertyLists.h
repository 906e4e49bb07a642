// GNUstep's base library behind plain functions.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Whether the bytes are a property list. The value is released at once.
int gnustepDecodes(const void* bytes, size_t size);
/// The value of the bytes, which the caller releases with gnustepRelease.
void* gnustepValue(const void* bytes, size_t size);
/// The size of the value in this format. The bytes are released at once.
size_t gnustepEncodes(void* value, int format);
void gnustepRelease(void* value);

#ifdef __cplusplus
}
#endif
