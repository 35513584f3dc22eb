// The scene's lights, drawn through the engine's one light.
//
// The engine lights a mesh with a single light from the camera's direction:
// colour * (0.2 + 0.8 * max(0, n . to_camera)), n the vertex normal. To show
// the scene's own lights, 3DSViewer works out each corner's diffuse light
// itself (Lambert from every light's position, spots fading from their
// hotspot to their falloff cone) and then hands the engine a normal turned
// so that n . to_camera is exactly that light. What this approximates:
//   - light colours: each corner gets a brightness, not a colour; the lights'
//     mixed colour tints the whole scene (LightTint);
//   - ambient: the engine's fixed floor of 0.2; the scene's ambient value is
//     not used (the reader makes it 10, 10, 10 whenever the file has one,
//     which would wash everything out);
//   - no shadows, no attenuation with distance, no specular highlights;
//     light between corners is interpolated across the face.
#pragma once

#include <cstdint>
#include <vector>

#include "nb3d/nb3d.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::viewer3ds {

// How a frame is lit ("lighting" setting).
enum LightingMode : int32_t {
  kLightingNone = 0,    // colours and textures as they are
  kLightingCamera = 1,  // the engine's light from the camera
  kLightingScene = 2,   // the scene's lights (the camera's when it has none)
};

struct PointLight {
  float position[3];
  float brightness;    // the brightest channel of its colour
  bool spot = false;
  float direction[3];  // spots: unit vector towards the target
  float cos_hotspot = 1, cos_falloff = 1;
};

// The scene's lights at the current pose, in world space.
std::vector<PointLight> PosedLights(const scene3ds::C3DSScene& scene);

// 0xFFRRGGBB of the lights' mixed colour, its brightest channel at 255
// (opaque white for no lights or black ones).
uint32_t LightTint(const scene3ds::C3DSScene& scene);

// The diffuse light (0..1) at `p` on a surface facing `n` (unit).
float DiffuseAt(const std::vector<PointLight>& lights, const float p[3], const float n[3]);

// Replaces each vertex normal with one that makes the engine's camera light
// give the scene lights' brightness there. `to_camera`: unit vector from
// the camera's target to the camera.
void EncodeSceneLight(const std::vector<PointLight>& lights, const float to_camera[3], nb3D::Vertex* vertices,
                      size_t count);

}  // namespace nimbo::viewer3ds
