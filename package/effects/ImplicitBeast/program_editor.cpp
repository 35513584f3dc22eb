#include "program_editor.h"

#include <algorithm>

#include "program_file.h"

namespace nimbo::implicit {
namespace {

using F = orrery::DialogFieldType;

constexpr const char* kProgramLabels[kProgramCount] = {"FUN program", "texture program", "normal program"};
constexpr const char* kProgramHints[kProgramCount] = {
    "lines NAME=expression of X, Y, Z, T and the user variables; the last line assigns FUN (inside where FUN < 0)",
    "assigns U and V at each surface point; leave empty for an environment map",
    "assigns NX, NY and NZ at each surface point; leave empty for the field's gradient"};

}  // namespace

ProgramEditor::ProgramEditor(const ImplicitSettings& settings, const SceneSettings& scene, Compiler compile)
    : edit_(settings), scene_(scene), compile_(std::move(compile)) {}

void ProgramEditor::LoadSelectedVariable() {
  const std::vector<UserVariable>& vars = edit_.programs.vars;
  if (vars.empty()) return;
  const UserVariable& v = vars[size_t(Selected())];
  var_min_ = v.minimum, var_max_ = v.maximum, var_position_ = v.position;
}

void ProgramEditor::StoreSelectedVariable() {
  std::vector<UserVariable>& vars = edit_.programs.vars;
  if (ShownSelected() < 0 || size_t(ShownSelected()) >= vars.size()) return;
  UserVariable& v = vars[size_t(ShownSelected())];
  v.minimum = var_min_, v.maximum = var_max_, v.position = var_position_;
}

void ProgramEditor::BuildFields() {
  hints_.assign(kProgramCount, "");
  auto add = [&](const char* label, F type, void* value, double lo = 0, double hi = 0, const char* choices = nullptr,
                 const char* hint = nullptr) { AddField(label, type, value, lo, hi, choices, hint); };

  add(status_.c_str(), F::kLabel, nullptr);
  for (int32_t k = 0; k < kProgramCount; ++k) {
    hints_[size_t(k)] =
        (k == error_program_ ? "<< this program does not compile; " : "") + std::string(kProgramHints[k]);
    add(kProgramLabels[k], F::kText, &edit_.programs.text[size_t(k)], 0, double(kMaxProgramText), nullptr,
        hints_[size_t(k)].c_str());
  }
  VolumeSettings& v = edit_.volume;
  for (const SettingRow<VolumeSettings>& row : VolumeRows()) {
    if (auto p = std::get_if<int32_t VolumeSettings::*>(&row.field))
      add(row.label, row.minimum == 0 && row.maximum == 1 ? F::kBool : F::kInt, &(v.*(*p)), row.minimum, row.maximum,
          nullptr, row.help);
    else if (auto f = std::get_if<float VolumeSettings::*>(&row.field))
      add(row.label, F::kFloat, &(v.*(*f)), row.minimum, row.maximum, nullptr, row.help);
  }

  AddNewVariableFields("name of a user variable to add");
  names_.clear();
  for (const UserVariable& u : edit_.programs.vars) names_.push_back(u.name);
  if (AddVariableChoice(names_)) {
    LoadSelectedVariable();
    add("minimum", F::kFloat, &var_min_, -1e9, 1e9, nullptr, "the value at position 0");
    add("maximum", F::kFloat, &var_max_, -1e9, 1e9, nullptr, "the value at position 1");
    add("initial position", F::kFloat, &var_position_, 0, 1, nullptr, "0..1, the dynamic variable's start");
    AddDeleteVariableButton();
  }

  AddSceneFields(scene_);
  AddFileFields("program file", kProgramFilter, "Load program...", "Save program...");
}

bool ProgramEditor::AfterOk() {
  StoreSelectedVariable();
  const bool pressed = AnyButtonPressed();
  if (add_pressed_) {
    const AddVariable added = AddUserVariable(edit_.programs, new_variable_);
    AfterAddVariable(added, edit_.programs.vars.size(), "A program set holds at most 255 user variables.");
  }
  if (delete_pressed_) DeleteShownVariable(edit_.programs.vars);
  if (load_pressed_) {
    // A file replaces the programs only when it reads and compiles whole.
    ProgramSet loaded;
    std::string error = ReadProgramFile(FilePath(), loaded);
    if (error.empty()) error = compile_(loaded).ErrorText();
    if (error.empty()) edit_.programs = std::move(loaded);
    ShowError(error);
  }
  if (save_pressed_) ShowError(WriteProgramFile(FilePath(), edit_.programs));
  ExportIfPressed();
  ClearButtons();
  edit_.Sanitize();

  // Every round recompiles, so the status line is always up to date.
  const CompiledPrograms compiled = compile_(edit_.programs);
  error_program_ = compiled.failed;
  error_line_ = compiled.line;
  status_ = compiled.Ok() ? "All programs compile." : compiled.ErrorText();
  return !pressed && compiled.Ok() && !SelectionMoved();
}

}  // namespace nimbo::implicit
