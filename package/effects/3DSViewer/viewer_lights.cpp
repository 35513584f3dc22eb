#include "viewer_lights.h"

#include <algorithm>
#include <cmath>

#include "viewer_scene.h"

namespace nimbo::viewer3ds {

using scene3ds::NodeType;
using scene3ds::Vec3;

namespace {

float Clamp01(float v) { return std::isfinite(v) ? std::clamp(v, 0.0f, 1.0f) : 0.0f; }

}  // namespace

std::vector<PointLight> PosedLights(const scene3ds::C3DSScene& scene) {
  std::vector<PointLight> lights;
  const auto& all = scene.Lights();
  for (size_t i = 0; i < all.size(); ++i) {
    const scene3ds::Light& l = all[i];
    const int32_t index = int32_t(i);
    const bool animated = HasNode(scene, NodeType::kLight, index) || HasNode(scene, NodeType::kSpotlight, index);
    const Vec3 at = PosedPosition(l.pose, animated, l.position);
    PointLight p{};
    p.position[0] = at.x, p.position[1] = at.y, p.position[2] = at.z;
    p.brightness = Clamp01(std::max({l.color.x, l.color.y, l.color.z}));
    if (l.spot) {
      const Vec3 target = PosedPosition(l.target_pose, HasNode(scene, NodeType::kLightTarget, index), l.target);
      float d[3] = {target.x - at.x, target.y - at.y, target.z - at.z};
      const float length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
      // Cones are full angles in degrees; a spot without them lights all round.
      if (length > 0 && std::isfinite(length) && l.falloff > 0) {
        p.spot = true;
        for (int k = 0; k < 3; ++k) p.direction[k] = d[k] / length;
        const float falloff = std::min(l.falloff, 179.0f);
        const float hotspot = std::clamp(l.hotspot, 0.0f, falloff);
        const float rad = float(M_PI / 360.0);  // half the angle, in radians
        p.cos_falloff = std::cos(falloff * rad);
        p.cos_hotspot = std::cos(hotspot * rad);
      }
    }
    if (std::isfinite(p.position[0]) && std::isfinite(p.position[1]) && std::isfinite(p.position[2]))
      lights.push_back(p);
  }
  return lights;
}

uint32_t LightTint(const scene3ds::C3DSScene& scene) {
  float sum[3] = {0, 0, 0};
  for (const scene3ds::Light& l : scene.Lights()) {
    sum[0] += Clamp01(l.color.x), sum[1] += Clamp01(l.color.y), sum[2] += Clamp01(l.color.z);
  }
  const float top = std::max({sum[0], sum[1], sum[2]});
  if (!(top > 0)) return 0xFFFFFFFFu;
  uint32_t tint = 0xFF000000u;
  for (int c = 0; c < 3; ++c) tint |= uint32_t(std::lround(255.0f * sum[c] / top)) << (16 - 8 * c);
  return tint;
}

float DiffuseAt(const std::vector<PointLight>& lights, const float p[3], const float n[3]) {
  float total = 0;
  for (const PointLight& l : lights) {
    float d[3] = {l.position[0] - p[0], l.position[1] - p[1], l.position[2] - p[2]};
    const float length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    if (!(length > 0)) continue;
    for (float& c : d) c /= length;
    float light = n[0] * d[0] + n[1] * d[1] + n[2] * d[2];
    if (light <= 0) continue;
    if (l.spot) {
      // Cosine of the angle off the spot's axis, from light to point.
      const float off = -(d[0] * l.direction[0] + d[1] * l.direction[1] + d[2] * l.direction[2]);
      if (off <= l.cos_falloff) continue;
      if (off < l.cos_hotspot) light *= (off - l.cos_falloff) / (l.cos_hotspot - l.cos_falloff);
    }
    total += light * l.brightness;
  }
  return Clamp01(total);
}

void EncodeSceneLight(const std::vector<PointLight>& lights, const float to_camera[3], nb3D::Vertex* vertices,
                      size_t count) {
  // A unit vector across the camera's direction, to tilt normals along.
  const float* c = to_camera;
  float across[3] = {0, 0, 0};
  across[std::fabs(c[0]) < 0.9f ? 0 : 1] = 1;
  const float dot = across[0] * c[0] + across[1] * c[1] + across[2] * c[2];
  for (int k = 0; k < 3; ++k) across[k] -= dot * c[k];
  const float length = std::sqrt(across[0] * across[0] + across[1] * across[1] + across[2] * across[2]);
  for (float& a : across) a /= length;
  for (size_t i = 0; i < count; ++i) {
    nb3D::Vertex& v = vertices[i];
    const float p[3] = {v.x, v.y, v.z}, n[3] = {v.nx, v.ny, v.nz};
    const float light = DiffuseAt(lights, p, n);
    const float side = std::sqrt(std::max(0.0f, 1.0f - light * light));
    v.nx = light * c[0] + side * across[0];
    v.ny = light * c[1] + side * across[1];
    v.nz = light * c[2] + side * across[2];
  }
}

}  // namespace nimbo::viewer3ds
