// Finds the function that a preloaded library's function replaces.
#pragma once

#include <dlfcn.h>

template <class Function>
Function* nextFunction(const char* name, Function* /*type*/) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
#define NEXT(function) nextFunction(#function, &function)
