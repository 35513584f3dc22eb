// Planted for the include-direction test: an effect must not reach into
// another effect's folder, by a relative path or by a bare name.
#include "../LowQ/lowq_ops.h"
#include "lowq_ops.h"
