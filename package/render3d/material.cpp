// Material defaults and render flags.
#include "render3d/material.h"

#include <cstring>

namespace nimbo {

namespace {

void InitLayer(TextureLayer& t, int32_t base, int32_t spec_clr, int32_t diff_clr, float l_x, float l_y) {
  std::memset(&t, 0, sizeof t);
  t.texmode = kTexModePicture;
  t.blur = 0.0f;
  t.base_clr = base;
  t.spec_clr = spec_clr;
  t.spec_power = 4;
  t.diff_clr = diff_clr;
  t.diff = 2;
  t.l_x = l_x;
  t.l_y = l_y;
  t.freeze = 0;
  t.w = 64;
  t.h = 64;
}

}  // namespace

void InitMaterial(Material& m) {
  std::memset(&m, 0, sizeof m);
  InitLayer(m.tex[0], 0xB0B0B0, 0x404040, 0x404040, 0.0f, 0.0f);
  InitLayer(m.tex[1], 0x808080, 0x806060, 0x202020, -0.1f, -0.3f);
  m.usesectex = 0;
  m.sectype = kSecTypeAdd;
  m.trans = kTransNone;
  m.wire = 0;
  m.invert_tex2 = 0;
  m.twosided = 0;
}

int32_t GetMaterialFlags(const Material& m) {
  int32_t flags = 0;
  if (m.usesectex) {
    // The second texture decides alone: its blending modes would not combine
    // with transparency or wireframe, so those are dropped on purpose.
    switch (m.sectype) {
      case kSecTypeAdd: flags = kMatFlagSecondAdded; break;
      case kSecTypeSub: flags = kMatFlagSecondSubtracted; break;
      case kSecTypeAlpha: flags = kMatFlagAlphaFromSecondBlue; break;
      default: break;
    }
  } else {
    switch (m.trans) {
      case kTransNone: flags = m.wire ? kMatFlagWireframe : 0; break;
      case kTransHalf: flags = kMatFlagHalfTransparent; break;
      case kTransAdditive: flags = kMatFlagAdditive; break;
      default: break;
    }
  }
  if (m.twosided) flags |= kMatFlagTwoSided;
  return flags;
}

void SetFixedText(char* field, int32_t size, const char* text) {
  if (size <= 0) return;
  if (!text) text = "";
  const size_t n = strnlen(text, size_t(size - 1));
  std::memmove(field, text, n);  // `text` may be the field itself
  field[n] = '\0';
}

}  // namespace nimbo
