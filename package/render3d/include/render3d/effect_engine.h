// The engine object's life in a 3D effect with one material set and a
// Scene3D, the same in every such effect: created and sized in Initialize
// with the materials built in it, freed before it is released. The effect
// calls these under its own lock.
#pragma once

#include <cstdint>

#include "nb3d/nb3d.h"

namespace nimbo {

class nbMatManager;
class Scene3D;

// A new engine object for `effect`, sized to `width` x `height` when both
// are known, with every material of `materials` built in it; null (and the
// materials left without an engine) when there is no engine or it cannot
// begin a frame.
nb3D* StartEffectEngine(void* effect, nbMatManager& materials, int32_t width, int32_t height);

// Frees the materials' and the scene's engine objects, releases `engine`
// and sets it to null; nothing to do when it is null already.
void StopEffectEngine(nb3D*& engine, Scene3D& scene, nbMatManager& materials);

}  // namespace nimbo
