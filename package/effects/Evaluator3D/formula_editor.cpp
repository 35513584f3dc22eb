#include "formula_editor.h"

#include <algorithm>

#include "e3d_file.h"

namespace nimbo::e3d {
namespace {

using F = orrery::DialogFieldType;

// The formula fields in the order the editor lists them.
constexpr Field kEditorOrder[kFieldCount] = {kA,   kB,  kC,  kD,  kE,  kF,  kG,  kH,    kX,   kY,
                                             kZ,   kU,  kV,  kNx, kNy, kNz, kU2, kV2,   kNx2, kNy2,
                                             kNz2, kCx, kCy, kCz, kTx, kTy, kTz, kRoll, kZoom};

constexpr const char* kUvModes =
    "formulas|environment map from faces|environment map from vertices|environment map from normal formulas";

}  // namespace

void FormulaEditor::BuildFields() {
  hints_.assign(kFieldCount, "");

  AddField(error_text_.c_str(), F::kLabel, nullptr);
  for (Field f : kEditorOrder) {
    hints_[size_t(f)] = "formula " + std::to_string(f) + "; may use " + MayUse(f, edit_.set.hmap != 0);
    if (f == error_formula_) hints_[size_t(f)] = "<< this formula does not compile; " + hints_[size_t(f)];
  }
  for (Field f : kEditorOrder)
    AddField(Info(f).name, F::kText, &edit_.set.text[size_t(f)], 0, double(kMaxFormulaLength), nullptr,
        hints_[size_t(f)].c_str());

  FormulaSet& s = edit_.set;
  AddField("imax", F::kInt, &s.imax, kMinGridSide, kMaxGridSide, nullptr, "vertices along i");
  AddField("jmax", F::kInt, &s.jmax, kMinGridSide, kMaxGridSide, nullptr, "vertices along j");
  AddField("height map (hmap)", F::kBool, &s.hmap, 0, 1, nullptr, "the height map input's blue channel as hmap");
  AddField("loop i", F::kBool, &s.loopi, 0, 1, nullptr, "fix last row (i=imax-1) to first row (i=0)");
  AddField("loop j", F::kBool, &s.loopj, 0, 1, nullptr, "fix last column (j=jmax-1) to first column (j=0)");
  AddField("front faces", F::kBool, &s.front, 0, 1);
  AddField("back faces", F::kBool, &s.back, 0, 1);
  AddField("texture coordinates 1", F::kChoice, &s.uvmode1, 0, kUvModeCount - 1, kUvModes);
  AddField("texture coordinates 2", F::kChoice, &s.uvmode2, 0, kUvModeCount - 1, kUvModes);
  AddField("i pattern", F::kText, &s.ipattern, 0, 0, nullptr, "a cell shows where the symbols at i and j agree");
  AddField("j pattern", F::kText, &s.jpattern);
  AddField("description", F::kText, &s.info);
  AddField("time speed", F::kFloat, &edit_.timespeed, kMinTimeSpeed, kMaxTimeSpeed, nullptr, "1.0 = realtime");

  // User variables: add by name, then edit or delete the selected one.
  AddVariableListFields(s.vars, "name of a variable to add", [&](UserVariable& v) {
    AddField("minimum", F::kFloat, &v.minimum, -1e9, 1e9);
    AddField("maximum", F::kFloat, &v.maximum, -1e9, 1e9);
    AddField("initial value", F::kFloat, &v.value, -1e9, 1e9);
    AddField("switched on", F::kBool, &v.on, 0, 1);
  });

  TextureKeys& t = edit_.texture;
  transparent_choice_ = t.transparent + 1;
  AddField("texture 1", F::kChoice, &t.texinfo[0], 0, 1, "texture input 1|picture file");
  AddField("picture 1", F::kPath, &t.texpath[0]);
  AddField("texture input 1 is static", F::kBool, &t.freeze[0], 0, 1);
  AddField("enable second texture", F::kBool, &t.sectex, 0, 1);
  AddField("texture 2", F::kChoice, &t.texinfo[1], 0, 1, "texture input 2|picture file");
  AddField("picture 2", F::kPath, &t.texpath[1]);
  AddField("texture input 2 is static", F::kBool, &t.freeze[1], 0, 1);
  AddField("second texture", F::kChoice, &t.sectype, 0, 2, "add|subtract|blue as transparency");
  AddField("invert second texture", F::kBool, &t.invert_tex2, 0, 1, nullptr,
      "very useful if type of second texture is 'sub'");
  AddField("transparency", F::kChoice, &transparent_choice_, 0, 2, "none|50% transparency|additive transparency");
  AddField("enable wireframe rendering", F::kBool, &t.wire, 0, 1);

  AddSceneFields(scene_);
  AddFileFields("E3D file", kE3DFilter, "Load E3D...", "Save E3D...");
}

bool FormulaEditor::AfterOk() {
  edit_.texture.transparent = std::clamp(transparent_choice_, 0, 2) - 1;
  const bool none_pressed = WorkButtons(
      edit_.set, "A formula set holds at most 255 user variables.",
      [&](const std::string& path) {
        FormulaSet loaded;
        const std::string error = LoadE3DFile(path, loaded);
        if (error.empty()) edit_.set = std::move(loaded);
        return error;
      },
      [&](const std::string& path) { return SaveE3DFile(path, edit_.set); });
  edit_.set.Sanitize();

  // Every change recompiles, so the error line is always up to date.
  const CompiledSet compiled = compile_(edit_.set);
  error_formula_ = compiled.first_error;
  error_text_ = compiled.first_error < 0 ? "All formulas compile." : CompileErrorText(compiled, edit_.set.hmap != 0);
  return none_pressed && compiled.first_error < 0 && !SelectionMoved();
}

}  // namespace nimbo::e3d
