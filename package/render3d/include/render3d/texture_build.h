// Building a material layer's texture pixels, apart from the engine: texture
// sides, the blur passes and the light map. nbMatManager builds every layer
// through these; tests and benchmarks call them directly.
//
// A layer's picture is w x h pixels at the top-left of a buffer whose rows
// are `stride` pixels apart (the engine texture's power-of-two width). The
// blur and the light map cover the picture itself, not the unused rest of
// the texture, so the sphere light fills what is drawn.
#pragma once

#include <cstdint>
#include <vector>

#include "render3d/material.h"
#include "render3d/material_kernels.h"

namespace nimbo {

// The side of an engine texture for a picture side `size`: the smallest power
// of two >= size, at least 2 and at most 1024 (1000 -> 1024, 1 -> 2,
// 3000 -> 1024).
int32_t TextureSide(int32_t size);

// The picture side for a layer side `size` (w or h; <= 0 = `output`): at
// least 1 and at most the largest texture side (1024), since the picture
// must fit in its texture.
int32_t PictureSide(int32_t size, int32_t output);

// The 3x3 passes for `blur`: one per step of a counter that starts at 0.0
// and grows by 0.07 while it stays below `blur` (single precision), so 0
// gives none, 0.07 one, 0.1 two, 0.3 five; at most kMaxBlurPasses.
inline constexpr int32_t kMaxBlurPasses = 256;
int32_t BlurPassCount(float blur);

// Runs `passes` 3x3 passes over the inner pixels of the picture; border
// pixels keep their value, each pass reads from a copy (`scratch`).
void BlurPicture(uint32_t* pixels, int32_t stride, int32_t w, int32_t h, int32_t passes, const MaterialKernels& k,
                 std::vector<uint32_t>& scratch);

// The w x h light map of `layer` into `map` (w * h pixels): base colour,
// plus the diffuse sphere light when diff_clr is non-zero, plus the specular
// one when spec_clr is non-zero (per channel, saturating).
void BuildLightMap(uint32_t* map, int32_t w, int32_t h, const TextureLayer& layer, const MaterialKernels& k);

// Lights the picture with a w x h light map (alpha bytes become 0).
void ApplyLightMap(const uint32_t* map, uint32_t* pixels, int32_t stride, int32_t w, int32_t h,
                   const MaterialKernels& k);

// Second-texture inversion: RGB of every pixel XOR 0xFFFFFF.
void InvertPicture(uint32_t* pixels, int32_t stride, int32_t w, int32_t h);

// What a picture layer goes through after loading: `blur` passes when the
// picture was loaded (a black stand-in is not blurred), then the light map.
// False when memory for the light map ran out (the picture stays unlit).
bool FinishPictureLayer(uint32_t* pixels, int32_t stride, int32_t w, int32_t h, const TextureLayer& layer,
                        bool loaded, const MaterialKernels& k, std::vector<uint32_t>& scratch);

}  // namespace nimbo
