// Orrery host SDK: the four entry points a package library exports with
// undecorated names, and the function types a host looks them up as.
#pragma once

#include <cstdint>

#include "orrery/effect.h"

extern "C" {
// Number of effects the package offers.
int32_t orrpkgGetSize();
// A new, independent effect object owned by the caller (delete it through its
// virtual destructor); null when index < 0, index >= orrpkgGetSize() or the
// allocation failed.
orrery::Effect* orrpkgCreateNewDFXObject(int32_t index);
// The package description (a constant string). Also tells the package where
// its help lives, from the settings manager's plug-ins path.
const char* orrpkgGetInfo();
// Package-wide memory use in bytes; every effect reports its own.
int32_t orrpkgGetMemUsage();
}

namespace orrery {
using PkgGetSizeFn = int32_t (*)();
using PkgCreateFn = Effect* (*)(int32_t);
using PkgGetInfoFn = const char* (*)();
using PkgGetMemUsageFn = int32_t (*)();
}  // namespace orrery
