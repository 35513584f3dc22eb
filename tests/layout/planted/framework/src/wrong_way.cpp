// Planted for the include-direction test: the framework must not know the
// package core.
#include "core/effect_base.h"
