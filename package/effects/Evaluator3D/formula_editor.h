// The model of Evaluator3D's setup dialog, the formula editor: every
// formula field, the grid options, the user variables (add, delete, range),
// the material's texture options, the background, and the file buttons
// (load and save E3D, save as 3DS).
//
// The host's dialog service shows one modal round at a time and hands back
// the fields. A round closed with OK is looked at here: a pressed button does
// its work (adds or deletes a variable, loads or saves a file) and the dialog
// opens again with the result; otherwise the set is compiled, and a formula
// that fails is named at the top of the dialog by its name and index, marked
// at its field, and the dialog opens again: OK is refused until it compiles
// or the user cancels. Cancel leaves everything as it was.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "evaluator3d_settings.h"
#include "orrery/services.h"
#include "render3d/scene3d.h"

namespace nimbo::e3d {

class FormulaEditor {
 public:
  // Compiles a set the way the effect does (under its lock).
  using Compiler = std::function<CompiledSet(const FormulaSet&)>;
  // Writes the mesh last drawn as a .3ds file: "" or the message to show.
  using Exporter = std::function<std::string(const std::string& path)>;

  FormulaEditor(const EvaluatorSettings& settings, const SceneSettings& scene, Compiler compile);

  void SetExport3DS(Exporter exporter) { export_3ds_ = std::move(exporter); }

  // Runs rounds through the host's dialog service until OK with a set that
  // compiles (true) or Cancel (false). A service that keeps answering OK
  // without mending the set gives up after kMaxRounds, as Cancel.
  static constexpr int32_t kMaxRounds = 200;
  bool Run(const char* help_page);

  // ---- one round, for hosts and tests that drive the model directly ----
  // The fields of the next round, bound to the editor's working copy.
  const std::vector<orrery::DialogField>& Fields();
  // Looks at a round the user closed with OK: true when the dialog is done
  // (the set compiles and no button was pressed).
  bool AfterOk();

  // The field index (0..28) of the formula that failed in the last round, or -1.
  int32_t ErrorFormula() const { return error_formula_; }
  const std::string& ErrorText() const { return error_text_; }

  const EvaluatorSettings& Result() const { return edit_; }
  const SceneSettings& SceneResult() const { return scene_; }

 private:
  void BuildFields();
  void LoadSelectedVariable();
  void StoreSelectedVariable();

  EvaluatorSettings edit_;
  SceneSettings scene_;
  Compiler compile_;
  Exporter export_3ds_;

  std::vector<orrery::DialogField> fields_;
  // Values the fields edit that are not settings as they stand.
  int32_t transparent_choice_ = 0;  // "transparent" + 1
  int32_t selected_ = 0, shown_selected_ = 0;
  std::string variable_choices_;
  std::string new_variable_;
  float var_min_ = 0, var_max_ = 1, var_value_ = 0.5f;
  int32_t var_on_ = 1;
  std::string e3d_path_, path_3ds_;
  int32_t add_pressed_ = 0, delete_pressed_ = 0, load_pressed_ = 0, save_pressed_ = 0, export_pressed_ = 0;
  int32_t error_formula_ = -1;
  std::string error_text_ = "All formulas compile.";
  std::vector<std::string> hints_;
};

}  // namespace nimbo::e3d
