#include "program_editor.h"

#include <algorithm>

#include "core/platform.h"
#include "formula/user_variables.h"
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
  selected_ = std::clamp(selected_, 0, std::max(0, int32_t(vars.size()) - 1));
  shown_selected_ = selected_;
  if (vars.empty()) return;
  const UserVariable& v = vars[size_t(selected_)];
  var_min_ = v.minimum, var_max_ = v.maximum, var_position_ = v.position;
}

void ProgramEditor::StoreSelectedVariable() {
  std::vector<UserVariable>& vars = edit_.programs.vars;
  if (shown_selected_ < 0 || size_t(shown_selected_) >= vars.size()) return;
  UserVariable& v = vars[size_t(shown_selected_)];
  v.minimum = var_min_, v.maximum = var_max_, v.position = var_position_;
}

void ProgramEditor::BuildFields() {
  fields_.clear();
  hints_.assign(kProgramCount, "");
  auto add = [&](const char* label, F type, void* value, double lo = 0, double hi = 0, const char* choices = nullptr,
                 const char* hint = nullptr) {
    fields_.push_back({label, type, value, lo, hi, choices, hint});
  };

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

  add("new variable", F::kText, &new_variable_, 0, 0, nullptr, "name of a user variable to add");
  add("Add variable", F::kButton, &add_pressed_, 0, 1);
  const std::vector<UserVariable>& vars = edit_.programs.vars;
  variable_choices_.clear();
  for (const UserVariable& u : vars) variable_choices_ += (variable_choices_.empty() ? "" : "|") + u.name;
  LoadSelectedVariable();
  if (!vars.empty()) {
    add("variable", F::kChoice, &selected_, 0, double(vars.size() - 1), variable_choices_.c_str());
    add("minimum", F::kFloat, &var_min_, -1e9, 1e9, nullptr, "the value at position 0");
    add("maximum", F::kFloat, &var_max_, -1e9, 1e9, nullptr, "the value at position 1");
    add("initial position", F::kFloat, &var_position_, 0, 1, nullptr, "0..1, the dynamic variable's start");
    add("Delete variable", F::kButton, &delete_pressed_, 0, 1);
  }

  const int32_t first_scene = int32_t(fields_.size());
  for (const orrery::DialogField& f : Scene3D::DialogFields(scene_, first_scene)) fields_.push_back(f);

  add("program file", F::kPath, &program_path_, 0, 0, nullptr, kProgramFilter);
  add("Load program...", F::kButton, &load_pressed_, 0, 1);
  add("Save program...", F::kButton, &save_pressed_, 0, 1);
  add("3DS file", F::kPath, &path_3ds_, 0, 0, nullptr, "3DS Files (*.3ds)|*.3ds|All Files (*.*)|*.*||");
  add("Save as 3DS...", F::kButton, &export_pressed_, 0, 1);
}

const std::vector<orrery::DialogField>& ProgramEditor::Fields() {
  BuildFields();
  return fields_;
}

bool ProgramEditor::AfterOk() {
  StoreSelectedVariable();
  const bool pressed = add_pressed_ || delete_pressed_ || load_pressed_ || save_pressed_ || export_pressed_;
  std::vector<UserVariable>& vars = edit_.programs.vars;
  if (add_pressed_) {
    switch (AddUserVariable(edit_.programs, new_variable_)) {
      case AddVariable::kAdded:
        selected_ = int32_t(vars.size()) - 1;
        new_variable_.clear();
        break;
      case AddVariable::kEmpty:
        platform::ShowWarning(formula::kEmptyNameCaption, formula::kEmptyNameMessage);
        break;
      case AddVariable::kRefused:
        new_variable_.clear();
        break;
      case AddVariable::kDuplicate:
        break;
      case AddVariable::kFull:
        platform::ShowWarning("Info", "A program set holds at most 255 user variables.");
        break;
    }
  }
  if (delete_pressed_ && !vars.empty()) {
    vars.erase(vars.begin() + std::clamp(shown_selected_, 0, int32_t(vars.size()) - 1));
    selected_ = std::max(0, shown_selected_ - 1);
  }
  if (load_pressed_) {
    // A file replaces the programs only when it reads and compiles whole.
    ProgramSet loaded;
    std::string error = ReadProgramFile(program_path_, loaded);
    if (error.empty()) error = compile_(loaded).ErrorText();
    if (error.empty())
      edit_.programs = std::move(loaded);
    else
      platform::ShowError("Error", error.c_str());
  }
  if (save_pressed_) {
    const std::string error = WriteProgramFile(program_path_, edit_.programs);
    if (!error.empty()) platform::ShowError("Error", error.c_str());
  }
  if (export_pressed_ && export_3ds_) {
    const std::string error = export_3ds_(path_3ds_);
    if (!error.empty()) platform::ShowError("Error", error.c_str());
  }
  add_pressed_ = delete_pressed_ = load_pressed_ = save_pressed_ = export_pressed_ = 0;
  edit_.Sanitize();

  // Every round recompiles, so the status line is always up to date.
  const CompiledPrograms compiled = compile_(edit_.programs);
  error_program_ = compiled.failed;
  error_line_ = compiled.line;
  status_ = compiled.Ok() ? "All programs compile." : compiled.ErrorText();
  return !pressed && compiled.Ok() && selected_ == shown_selected_;
}

bool ProgramEditor::Run(const char* help_page) {
  orrery::DialogService* service = orrery::GetDialogService();
  if (!service) return false;
  for (int32_t round = 0; round < kMaxRounds; ++round) {
    const std::vector<orrery::DialogField>& fields = Fields();
    const orrery::DialogModel model{"ImplicitBeast program editor", fields.data(), int32_t(fields.size()), help_page,
                                    platform::MainWindow()};
    if (!service->RunModal(model)) return false;
    if (AfterOk()) return true;
  }
  return false;
}

}  // namespace nimbo::implicit
