// Material records of the 3D effects: two texture layers each, and the
// render flags the engine draws a material with.
//
// A Material is a plain record copied by value: the material editor edits a
// copy, the manager (render3d/material_manager.h) keeps one per material
// index and builds its textures, the .3ds writer reads colours and flags from
// it. InitMaterial gives the defaults; GetMaterialFlags is the one place the
// render flags are derived, so the manager, the writer and the effects agree.
#pragma once

#include <cstdint>

namespace nimbo {

// Texture source of a layer: an input screen of the effect, or a picture file
// (any non-zero texmode is a picture; only 0 and non-zero are told apart).
inline constexpr int32_t kTexModeInput = 0;
inline constexpr int32_t kTexModePicture = 1;

// Second texture types (Material::sectype).
inline constexpr int32_t kSecTypeAdd = 0;    // colour of layer 1 added to layer 0
inline constexpr int32_t kSecTypeSub = 1;    // colour of layer 1 subtracted
inline constexpr int32_t kSecTypeAlpha = 2;  // blue of layer 1 is the opacity

// Transparency (Material::trans).
inline constexpr int32_t kTransNone = -1;
inline constexpr int32_t kTransHalf = 0;      // "50% transparency"
inline constexpr int32_t kTransAdditive = 1;  // "additive transparency (add color to background)"

// Render flags handed to the engine (the same bits as nb3D::RenderFlag).
inline constexpr int32_t kMatFlagHalfTransparent = 0x1;
inline constexpr int32_t kMatFlagAdditive = 0x2;
inline constexpr int32_t kMatFlagSecondAdded = 0x4;
inline constexpr int32_t kMatFlagSecondSubtracted = 0x8;
inline constexpr int32_t kMatFlagWireframe = 0x10;
inline constexpr int32_t kMatFlagAlphaFromSecondBlue = 0x20;
inline constexpr int32_t kMatFlagTwoSided = 0x100;

inline constexpr int32_t kMaterialNameSize = 32;
inline constexpr int32_t kBitmapNameSize = 512;

struct TextureLayer {
  int32_t texmode;                   // kTexModeInput or a picture (non-zero)
  char bitmapname[kBitmapNameSize];  // picture file path
  float blur;                        // 3x3 passes while 0.0, 0.07, 0.14, ... < blur
  int32_t base_clr;                  // 0x00RRGGBB, base of the light map
  int32_t spec_clr;                  // 0x00RRGGBB specular light, 0 = none
  int32_t spec_power;                      // specular sharpness: I to the power 2^spec_power
  int32_t diff_clr;                  // 0x00RRGGBB diffuse light, 0 = none
  int32_t diff;                      // diffuse sharpness: I to the power 2^diff
  float l_x, l_y;                    // light direction (x, y)
  int32_t freeze;                    // the input screen is static: copied once
  // Run-time only, reset to 0 after every load of the record: the engine
  // texture exists (1), the engine pixel buffer's handle, the layer is bound
  // to an input slot (1).
  int32_t engine_texture;
  uint32_t pixel_buffer;
  int32_t input;
  int32_t w, h;  // texture size in pixels; <= 0 = the output screen's size
};

struct Material {
  TextureLayer tex[2];
  int32_t usesectex;    // "enable second texture"
  int32_t sectype;      // kSecType...
  int32_t trans;        // kTrans...
  int32_t wire;         // "enable wireframe rendering"
  int32_t invert_tex2;  // layer 1's RGB inverted (XOR 0xFFFFFF)
  char name[kMaterialNameSize];
  int32_t twosided;
};

// Sets every field of `m` to its default: layer 0 base 0xB0B0B0, specular
// 0x404040 (4), diffuse 0x404040 (2), light (0, 0); layer 1 base 0x808080,
// specular 0x806060 (4), diffuse 0x202020 (2), light (-0.1, -0.3); both
// pictures, 64x64, no blur; no second texture, sectype 0, trans -1.
void InitMaterial(Material& m);
inline Material DefaultMaterial() {
  Material m;
  InitMaterial(m);
  return m;
}

// The engine's render flags for `m`. With a second texture the flags are its
// type's alone (add 4, sub 8, alpha 32): transparency and wireframe are then
// ignored, deliberately. Without: trans -1 gives 16 when wireframe is on,
// else 0; trans 0 gives 1; trans 1 gives 2; other values 0. Two-sided adds
// 0x100.
int32_t GetMaterialFlags(const Material& m);

// Copies `text` into a fixed field, cut to fit and always terminated.
void SetFixedText(char* field, int32_t size, const char* text);
template <int32_t N>
void SetFixedText(char (&field)[N], const char* text) {
  SetFixedText(field, N, text);
}

}  // namespace nimbo
