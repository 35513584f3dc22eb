#include "implicit_mesh.h"

#include <algorithm>
#include <cmath>

namespace nimbo::implicit {

PointPrograms::PointPrograms(const CompiledPrograms& compiled) : x_(kBlock), y_(kBlock), z_(kBlock), result_(kBlock) {
  if (compiled.has_lines[kTextureProgram])
    texture_ = std::make_unique<formula::ProgramBlockEvaluator>(compiled.program[kTextureProgram], kBlock);
  if (compiled.has_lines[kNormalProgram])
    normal_ = std::make_unique<formula::ProgramBlockEvaluator>(compiled.program[kNormalProgram], kBlock);
}

void PointPrograms::Apply(float t, IsoMesh& surface, std::vector<float>& uvs) {
  const size_t count = surface.VertexCount();
  uvs.assign(2 * count, 0.0f);
  if (!texture_ && !normal_) return;
  for (size_t from = 0; from < count; from += kBlock) {
    const size_t n = std::min(kBlock, count - from);
    for (size_t k = 0; k < n; ++k) {
      const float* p = &surface.positions[3 * (from + k)];
      x_[k] = p[0], y_[k] = p[1], z_[k] = p[2];
    }
    if (normal_) {
      normal_->Run(t, x_.data(), y_.data(), z_.data(), n, result_.data());
      for (size_t k = 0; k < n; ++k) {
        const float nx = normal_->Output(0, k), ny = normal_->Output(1, k), nz = normal_->Output(2, k);
        const float length = std::sqrt(nx * nx + ny * ny + nz * nz);
        if (!std::isfinite(length) || length < 1e-20f) continue;
        float* normal = &surface.normals[3 * (from + k)];
        normal[0] = nx / length, normal[1] = ny / length, normal[2] = nz / length;
      }
    }
    if (texture_) {
      texture_->Run(t, x_.data(), y_.data(), z_.data(), n, result_.data());
      for (size_t k = 0; k < n; ++k) {
        const float u = texture_->Output(0, k), v = texture_->Output(1, k);
        uvs[2 * (from + k)] = std::isfinite(u) ? u : 0.0f;
        uvs[2 * (from + k) + 1] = std::isfinite(v) ? v : 0.0f;
      }
    }
  }
}

void AssembleVertices(const IsoMesh& surface, const std::vector<float>* uvs, const Box& box, float world_side,
                      std::vector<nb3D::Vertex>& vertices) {
  float centre[3], longest = 0;
  for (int a = 0; a < 3; ++a) {
    centre[a] = 0.5f * (box.minimum[a] + box.maximum[a]);
    longest = std::max(longest, box.maximum[a] - box.minimum[a]);
  }
  const float scale = longest > 0 ? world_side / longest : 1.0f;
  vertices.resize(surface.VertexCount());
  for (size_t i = 0; i < vertices.size(); ++i) {
    const float* p = &surface.positions[3 * i];
    const float* n = &surface.normals[3 * i];
    nb3D::Vertex& v = vertices[i];
    v.x = (p[0] - centre[0]) * scale, v.y = (p[1] - centre[1]) * scale, v.z = (p[2] - centre[2]) * scale;
    v.nx = n[0], v.ny = n[1], v.nz = n[2];
    if (uvs) {
      v.u = (*uvs)[2 * i], v.v = (*uvs)[2 * i + 1];
    } else {
      v.u = 0.5f + 0.5f * n[0];
      v.v = 0.5f - 0.5f * n[1];
    }
    v.u2 = v.u, v.v2 = v.v;
  }
}

}  // namespace nimbo::implicit
