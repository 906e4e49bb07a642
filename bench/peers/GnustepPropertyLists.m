#include "bench/peers/GnustepPropertyLists.h"

#import <Foundation/Foundation.h>

static id valueOf(const void* bytes, size_t size) {
  NSData* data = [NSData dataWithBytesNoCopy:(void*)bytes length:size freeWhenDone:NO];
  return [NSPropertyListSerialization propertyListWithData:data
                                                   options:NSPropertyListImmutable
                                                    format:NULL
                                                     error:NULL];
}

int gnustepDecodes(const void* bytes, size_t size) {
  NSAutoreleasePool* pool = [NSAutoreleasePool new];
  const int decoded = valueOf(bytes, size) != nil;
  [pool release];
  return decoded;
}

void* gnustepValue(const void* bytes, size_t size) {
  NSAutoreleasePool* pool = [NSAutoreleasePool new];
  id value = [valueOf(bytes, size) retain];
  [pool release];
  return value;
}

size_t gnustepEncodes(void* value, int format) {
  NSAutoreleasePool* pool = [NSAutoreleasePool new];
  const size_t size = [[NSPropertyListSerialization dataWithPropertyList:(id)value
                                                                  format:(NSPropertyListFormat)format
                                                                 options:0
                                                                   error:NULL] length];
  [pool release];
  return size;
}

void gnustepRelease(void* value) { [(id)value release]; }
