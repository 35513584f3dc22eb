// Planted for the include-direction test: the host may include the .3ds
// reader's header, and nothing else of render3d.
#include "render3d/c3ds_scene.h"
#include "render3d/engine_loader.h"
