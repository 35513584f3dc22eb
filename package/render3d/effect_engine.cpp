// The engine object's life in a 3D effect (see effect_engine.h).
#include "render3d/effect_engine.h"

#include "render3d/engine_loader.h"
#include "render3d/material_manager.h"
#include "render3d/scene3d.h"

namespace nimbo {

nb3D* StartEffectEngine(void* effect, nbMatManager& materials, int32_t width, int32_t height) {
  nb3D* engine = CreateEngineObject(effect);
  if (!engine) return nullptr;
  if (width > 0 && height > 0) engine->SetOutputSize(width, height);
  if (!engine->Begin()) {
    engine->Release();
    return nullptr;
  }
  materials.SetEngine(engine);
  materials.SetOutputSize(width, height);
  materials.BuildAll();
  engine->End();
  return engine;
}

void StopEffectEngine(nb3D*& engine, Scene3D& scene, nbMatManager& materials) {
  materials.FreeAll();
  materials.SetEngine(nullptr);
  if (engine) {
    scene.Free(engine);
    engine->Release();
  }
  engine = nullptr;
}

}  // namespace nimbo
