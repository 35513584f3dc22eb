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
#include <string>
#include <utility>
#include <vector>

#include "evaluator3d_settings.h"
#include "orrery/services.h"
#include "render3d/round_dialog.h"
#include "render3d/scene3d.h"

namespace nimbo::e3d {

class FormulaEditor final : public SourceEditor<EvaluatorSettings, FormulaSet, CompiledSet> {
 public:
  FormulaEditor(const EvaluatorSettings& settings, const SceneSettings& scene, Compiler compile)
      : SourceEditor(settings, scene, std::move(compile)) {}

  // Runs rounds through the host's dialog service until OK with a set that
  // compiles (true) or Cancel (false), or kMaxRounds of OK without a mend.
  bool Run(const char* help_page) { return RunRounds("Evaluator3D formula editor", help_page); }

  // Looks at a round the user closed with OK: true when the dialog is done
  // (the set compiles and no button was pressed).
  bool AfterOk() override;

  // The field index (0..28) of the formula that failed in the last round, or -1.
  int32_t ErrorFormula() const { return error_formula_; }
  const std::string& ErrorText() const { return error_text_; }

 private:
  void BuildFields() override;

  // Values the fields edit that are not settings as they stand.
  int32_t transparent_choice_ = 0;  // "transparent" + 1
  int32_t error_formula_ = -1;
  std::string error_text_ = "All formulas compile.";
  std::vector<std::string> hints_;
};

}  // namespace nimbo::e3d
