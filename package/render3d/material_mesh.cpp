// DrawMaterialMesh (scene3d.h): one mesh with a material's textures, flags
// and texture-coordinate scale.
#include <vector>

#include "render3d/material_manager.h"
#include "render3d/scene3d.h"

namespace nimbo {

int32_t DrawMaterialMesh(nb3D* engine, const nbMatManager& materials, int32_t mat,
                         std::span<const nb3D::Vertex> vertices, std::span<const uint32_t> indices,
                         const float* transform) {
  if (!engine || vertices.empty() || indices.size() < 3) return 0;
  const float su = materials.LayerScaleU(mat, 0), sv = materials.LayerScaleV(mat, 0);
  const float su2 = materials.LayerScaleU(mat, 1), sv2 = materials.LayerScaleV(mat, 1);
  const nb3D::Vertex* drawn = vertices.data();
  // The effects give coordinates over the whole picture (0..1); a texture
  // whose picture fills only its top-left part needs them scaled. Copying
  // is skipped when both layers fill their textures.
  thread_local std::vector<nb3D::Vertex> scaled;
  if (su != 1.0f || sv != 1.0f || su2 != 1.0f || sv2 != 1.0f) {
    scaled.assign(vertices.begin(), vertices.end());
    for (nb3D::Vertex& v : scaled) {
      v.u *= su, v.v *= sv;
      v.u2 *= su2, v.v2 *= sv2;
    }
    drawn = scaled.data();
  }
  int32_t flags = materials.GetMaterialFlags(mat);
  const char* second = materials.LayerTexture(mat, 1);
  // Flags that need a second texture the manager did not build (no second
  // picture could be had) fall back to the first texture alone.
  if (!second) flags &= ~int32_t(nb3D::kFlagSecondAdded | nb3D::kFlagSecondSubtracted | nb3D::kFlagAlphaFromSecondBlue);
  nb3D::Mesh mesh{};
  mesh.vertices = drawn;
  mesh.vertex_count = int32_t(vertices.size());
  mesh.indices = indices.data();
  mesh.index_count = int32_t(indices.size());
  mesh.texture = materials.LayerTexture(mat, 0);
  mesh.texture2 = second;
  mesh.flags = uint32_t(flags);
  mesh.transform = transform;
  return engine->DrawMesh(mesh);
}

}  // namespace nimbo
