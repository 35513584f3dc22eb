// The material editor's fields and texts.
#include "render3d/material_dialog.h"

namespace nimbo {

MaterialEdit ToEdit(const Material& m) {
  MaterialEdit e;
  e.name = m.name;
  e.usesectex = m.usesectex != 0;
  e.sectype = m.sectype;
  e.trans_choice = m.trans + 1;
  e.wire = m.wire != 0;
  e.invert_tex2 = m.invert_tex2 != 0;
  e.twosided = m.twosided != 0;
  for (int i = 0; i < 2; ++i) {
    const TextureLayer& t = m.tex[i];
    MaterialEdit::Layer& l = e.tex[i];
    l.source = t.texmode != kTexModeInput;
    l.bitmap = t.bitmapname;
    l.blur = t.blur;
    l.base_clr = t.base_clr;
    l.spec_clr = t.spec_clr;
    l.spec_power = t.spec_power;
    l.diff_clr = t.diff_clr;
    l.diff = t.diff;
    l.l_x = t.l_x;
    l.l_y = t.l_y;
    l.freeze = t.freeze != 0;
    l.w = t.w;
    l.h = t.h;
  }
  return e;
}

Material FromEdit(const MaterialEdit& e, const Material& m) {
  Material out = m;
  SetFixedText(out.name, e.name.c_str());
  out.usesectex = e.usesectex;
  out.sectype = e.sectype;
  out.trans = e.trans_choice - 1;
  out.wire = e.wire;
  out.invert_tex2 = e.invert_tex2;
  out.twosided = e.twosided;
  for (int i = 0; i < 2; ++i) {
    const MaterialEdit::Layer& l = e.tex[i];
    TextureLayer& t = out.tex[i];
    if (l.source == 0)
      t.texmode = kTexModeInput;
    else if (t.texmode == kTexModeInput)
      t.texmode = kTexModePicture;
    SetFixedText(t.bitmapname, l.bitmap.c_str());
    t.blur = l.blur;
    t.base_clr = l.base_clr;
    t.spec_clr = l.spec_clr;
    t.spec_power = l.spec_power;
    t.diff_clr = l.diff_clr;
    t.diff = l.diff;
    t.l_x = l.l_x;
    t.l_y = l.l_y;
    t.freeze = l.freeze;
    t.w = l.w;
    t.h = l.h;
  }
  return out;
}

std::vector<orrery::DialogField> MaterialDialogFields(MaterialEdit& e) {
  using T = orrery::DialogFieldType;
  std::vector<orrery::DialogField> f;
  auto add = [&f](const char* label, T type, void* value, double lo, double hi, const char* choices,
                  const char* hint) {
    f.push_back({label, type, value, lo, hi, choices, hint});
    return int32_t(f.size()) - 1;
  };
  add("name", T::kText, &e.name, 0, kMaterialNameSize - 1, nullptr, "material name");
  add("transparency", T::kChoice, &e.trans_choice, 0, 2,
      "no transparency|50% transparency|additive transparency (add color to background)",
      "ignored while the second texture is enabled");
  add("wireframe", T::kBool, &e.wire, 0, 1, nullptr, "enable wireframe rendering");
  add("two-sided", T::kBool, &e.twosided, 0, 1, nullptr, "draw both faces");
  const int32_t second = add("second texture", T::kBool, &e.usesectex, 0, 1, nullptr, "enable second texture");
  const int32_t sectype = add("second texture type", T::kChoice, &e.sectype, 0, 2, "add|sub|alpha",
                              "add: add color of second texture to color of first texture; "
                              "sub: subtract color of second texture from color of first texture; "
                              "alpha: use BLUE color of second texture as transparency");
  const int32_t invert = add("invert second texture", T::kBool, &e.invert_tex2, 0, 1, nullptr,
                             "very useful if type of second texture is 'sub'");
  f[size_t(sectype)].enabled_by = second;
  f[size_t(sectype)].enabled_value = 1;
  f[size_t(invert)].enabled_by = second;
  f[size_t(invert)].enabled_value = 1;

  static const char* const kSource[2] = {"first texture: source", "second texture: source"};
  static const char* const kLabels[2][13] = {
      {"first texture: picture", "first texture: blur", "first texture: base color", "first texture: specular color",
       "first texture: specular size", "first texture: diffuse color", "first texture: diffuse size",
       "first texture: light x", "first texture: light y", "first texture: static input", "first texture: width",
       "first texture: height", nullptr},
      {"second texture: picture", "second texture: blur", "second texture: base color",
       "second texture: specular color", "second texture: specular size", "second texture: diffuse color",
       "second texture: diffuse size", "second texture: light x", "second texture: light y",
       "second texture: static input", "second texture: width", "second texture: height", nullptr}};
  for (int i = 0; i < 2; ++i) {
    MaterialEdit::Layer& l = e.tex[i];
    const char* const* label = kLabels[i];
    const size_t first = f.size();
    const int32_t source = add(kSource[i], T::kChoice, &l.source, 0, 1, "input screen|picture file",
                               "input screen: an extra input of the effect; picture file: a picture on disk");
    const int32_t picture = add(label[0], T::kPath, &l.bitmap, 0, 0, nullptr, "picture file");
    const int32_t blur = add(label[1], T::kFloat, &l.blur, 0, 2, nullptr, "one blur pass per 0.07");
    add(label[2], T::kColor, &l.base_clr, 0, 0xFFFFFF, nullptr,
        "base of the light map: 128 per channel keeps the texture, less darkens, more brightens");
    add(label[3], T::kColor, &l.spec_clr, 0, 0xFFFFFF, nullptr, "specular light color (black = none)");
    add(label[4], T::kInt, &l.spec_power, 0, 16, nullptr, "'size of light spot' of reflective lighting");
    add(label[5], T::kColor, &l.diff_clr, 0, 0xFFFFFF, nullptr, "diffuse light color (black = none)");
    add(label[6], T::kInt, &l.diff, 0, 16, nullptr, "sharpness of the diffuse light");
    add(label[7], T::kFloat, &l.l_x, -1, 1, nullptr, "light direction x");
    add(label[8], T::kFloat, &l.l_y, -1, 1, nullptr, "light direction y");
    const int32_t freeze = add(label[9], T::kBool, &l.freeze, 0, 1, nullptr,
                               "check this if the inputscreen is static (i.e. doesn't change while the "
                               "composition is shown)");
    add(label[10], T::kInt, &l.w, 0, 1024, nullptr, "texture width in pixels; 0 = output width");
    add(label[11], T::kInt, &l.h, 0, 1024, nullptr, "texture height in pixels; 0 = output height");
    f[size_t(picture)].enabled_by = source;
    f[size_t(picture)].enabled_value = 1;
    f[size_t(blur)].enabled_by = source;
    f[size_t(blur)].enabled_value = 1;
    f[size_t(freeze)].enabled_by = source;
    f[size_t(freeze)].enabled_value = 0;
    // The second texture's fields apply only while it is enabled (a field
    // has one condition: the source-dependent ones keep theirs).
    if (i == 1)
      for (size_t k = first; k < f.size(); ++k)
        if (f[k].enabled_by < 0) {
          f[k].enabled_by = second;
          f[k].enabled_value = 1;
        }
  }
  return f;
}

int32_t RunMaterialDialog(Material& m, void* owner, const char* help_page) {
  MaterialEdit edit = ToEdit(m);
  const std::vector<orrery::DialogField> fields = MaterialDialogFields(edit);
  const orrery::DialogModel model{"Material", fields.data(), int32_t(fields.size()), help_page, owner};
  orrery::DialogService* dialogs = orrery::GetDialogService();
  if (!dialogs || !dialogs->RunModal(model)) return 0;
  m = FromEdit(edit, m);
  return 1;
}

}  // namespace nimbo
