// The triangles of a posed .3ds scene (see scene_triangles.h).
#include "scene_triangles.h"

#include <algorithm>
#include <cmath>

namespace nimbo::wax {
namespace {

using scene3ds::Mat4;
using scene3ds::Vec3;

// Column vectors: p' = m * (p, 1).
Vec3 Apply(const Mat4& m, const Vec3& p) {
  return {m.m[0][0] * p.x + m.m[0][1] * p.y + m.m[0][2] * p.z + m.m[0][3],
          m.m[1][0] * p.x + m.m[1][1] * p.y + m.m[1][2] * p.z + m.m[1][3],
          m.m[2][0] * p.x + m.m[2][1] * p.y + m.m[2][2] * p.z + m.m[2][3]};
}

uint32_t Channel(float v) { return uint32_t(std::lround(std::clamp(std::isfinite(v) ? v : 0.0f, 0.0f, 1.0f) * 255.0f)); }

}  // namespace

std::vector<VoxelTriangle> SceneTriangles(const C3DSScene& scene) {
  std::vector<VoxelTriangle> out;
  const auto& vertices = scene.Vertices();
  const auto& faces = scene.Faces();
  const auto& materials = scene.Materials();
  for (const scene3ds::Mesh& mesh : scene.Meshes()) {
    if (mesh.hidden() || mesh.pose.hidden) continue;
    if (mesh.first_vertex > vertices.size() || mesh.vertex_count > vertices.size() - mesh.first_vertex) continue;
    if (mesh.first_face > faces.size() || mesh.face_count > faces.size() - mesh.first_face) continue;
    // The file's vertices sit where the mesh matrix put them; the pose
    // moves them from there: world * inverse(mesh matrix).
    Mat4 place;
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c) {
        float sum = 0;
        for (int k = 0; k < 4; ++k) sum += mesh.pose.world.m[r][k] * mesh.inverse.m[k][c];
        place.m[r][c] = sum;
      }
    for (size_t f = mesh.first_face; f < mesh.first_face + mesh.face_count; ++f) {
      const scene3ds::Face& face = faces[f];
      VoxelTriangle t;
      bool valid = true;
      for (int k = 0; k < 3; ++k) {
        if (face.v[k] >= mesh.vertex_count) {
          valid = false;
          break;
        }
        const Vec3 p = Apply(place, vertices[mesh.first_vertex + face.v[k]].position);
        t.corner[k][0] = p.x, t.corner[k][1] = p.y, t.corner[k][2] = p.z;
      }
      if (!valid) continue;
      const int m = face.material >= 0 && size_t(face.material) < materials.size() ? face.material : 0;
      const Vec3 d = materials.empty() ? Vec3{1, 1, 1} : materials[size_t(m)].diffuse;
      t.colour = (Channel(d.x) << 16) | (Channel(d.y) << 8) | Channel(d.z);
      out.push_back(t);
    }
  }
  return out;
}

}  // namespace nimbo::wax
