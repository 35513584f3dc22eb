// The scene's materials as 3DSViewer draws them, through the effect's
// nbMatManager.
//
// Manager materials 0..7 are the eight "RGB Texture" inputs: input slot i is
// bound to material i once, when the effect is made, so input i + 1 always
// feeds the same texture. Manager material 8 + k holds the picture of the
// scene's material k (k up to 247; materials beyond draw without a picture).
//
// Which texture a scene material wears:
//   - with its bit in "texinputs" set, an input: scene material k (k >= 1,
//     in file order) uses input ((k - 1) mod 8) + 1 and bit (k - 1) mod 8;
//     the scene's "default" material (faces the file gives none) goes with
//     input 1 and bit 0;
//   - else the picture its texture map names: the path as the file gives it,
//     else the file of that name beside the scene (letter case ignored, as
//     .3ds files name their maps in capitals), loaded by the manager through
//     the host's picture loader;
//   - else none: the material's diffuse colour.
// Pictures and inputs are shown as they are (the light map is neutral); the
// material's flags give two-sided, wireframe, additive and, for any
// transparency, the engine's 50% transparency.
#pragma once

#include <cstdint>
#include <string>

#include "render3d/c3ds_scene.h"
#include "render3d/material_manager.h"

namespace nimbo::viewer3ds {

inline constexpr int32_t kTextureInputs = 8;
inline constexpr int32_t kFirstPictureMaterial = kTextureInputs;

// How one scene material is drawn.
struct MaterialLook {
  const char* texture = nullptr;  // engine texture, null = plain colour
  float scale_u = 1, scale_v = 1;  // texture coordinates times these
  uint32_t flags = 0;              // nb3D render flags
  uint32_t color = 0xFFFFFFFFu;    // 0xFFRRGGBB the texture or surface is multiplied by
};

// The input (1..8) scene material `k` goes with.
int32_t InputFor(int32_t k);

// The file a texture map names: `map` as given when it is a file, else the
// file of its name (without folders, either separator) in the scene's
// folder, letter case ignored. "" when neither exists.
std::string ResolvePicture(const std::string& scene_path, const std::string& map);

// Binds input slot i to manager material i (once per manager).
void PinInputSlots(nbMatManager& manager);

// Rebuilds the manager's materials for `scene`: the inputs that some scene
// material uses and the pictures of the others. Needs the engine bound.
void BuildMaterials(nbMatManager& manager, const scene3ds::C3DSScene& scene, uint32_t input_mask, int32_t side);

MaterialLook LookOf(const nbMatManager& manager, const scene3ds::C3DSScene& scene, int32_t k, uint32_t input_mask);

}  // namespace nimbo::viewer3ds
