// The frame of the round-based editor dialogs (see round_dialog.h).
#include "render3d/round_dialog.h"

#include "core/platform.h"
#include "formula/user_variables.h"

namespace nimbo {

using F = orrery::DialogFieldType;

const std::vector<orrery::DialogField>& RoundDialog::Fields() {
  fields_.clear();
  BuildFields();
  return fields_;
}

bool RoundDialog::RunRounds(const char* title, const char* help_page) {
  orrery::DialogService* service = orrery::GetDialogService();
  if (!service) return false;
  for (int32_t round = 0; round < kMaxRounds; ++round) {
    const std::vector<orrery::DialogField>& fields = Fields();
    const orrery::DialogModel model{title, fields.data(), int32_t(fields.size()), help_page, platform::MainWindow()};
    if (!service->RunModal(model)) return false;
    if (AfterOk()) return true;
  }
  return false;
}

void RoundDialog::AddField(const char* label, F type, void* value, double lo, double hi, const char* choices,
                           const char* hint) {
  fields_.push_back({label, type, value, lo, hi, choices, hint});
}

void RoundDialog::AddSceneFields(SceneSettings& scene) {
  const int32_t first = int32_t(fields_.size());
  for (const orrery::DialogField& f : Scene3D::DialogFields(scene, first)) fields_.push_back(f);
}

// ---- the user-variable list --------------------------------------------------------
void RoundDialog::AddNewVariableFields(const char* hint) {
  AddField("new variable", F::kText, &new_variable_, 0, 0, nullptr, hint);
  AddField("Add variable", F::kButton, &add_pressed_, 0, 1);
}

bool RoundDialog::AddVariableChoice(const std::vector<std::string>& names) {
  variable_choices_.clear();
  for (const std::string& name : names) variable_choices_ += (variable_choices_.empty() ? "" : "|") + name;
  selected_ = std::clamp(selected_, 0, std::max(0, int32_t(names.size()) - 1));
  shown_selected_ = selected_;
  if (names.empty()) return false;
  AddField("variable", F::kChoice, &selected_, 0, double(names.size() - 1), variable_choices_.c_str());
  return true;
}

void RoundDialog::AddDeleteVariableButton() { AddField("Delete variable", F::kButton, &delete_pressed_, 0, 1); }

void RoundDialog::AddedVariable(size_t count) {
  selected_ = int32_t(count) - 1;
  new_variable_.clear();
}

void RoundDialog::ShowEmptyName() { platform::ShowWarning(formula::kEmptyNameCaption, formula::kEmptyNameMessage); }

void RoundDialog::ShowFull(const char* message) { platform::ShowWarning("Info", message); }

// ---- the file buttons --------------------------------------------------------------
void RoundDialog::AddFileFields(const char* file_label, const char* filter, const char* load_label,
                                const char* save_label) {
  AddField(file_label, F::kPath, &file_path_, 0, 0, nullptr, filter);
  AddField(load_label, F::kButton, &load_pressed_, 0, 1);
  AddField(save_label, F::kButton, &save_pressed_, 0, 1);
  AddField("3DS file", F::kPath, &path_3ds_, 0, 0, nullptr, "3DS Files (*.3ds)|*.3ds|All Files (*.*)|*.*||");
  AddField("Save as 3DS...", F::kButton, &export_pressed_, 0, 1);
}

void RoundDialog::ExportIfPressed() {
  if (export_pressed_ && export_3ds_) ShowError(export_3ds_(path_3ds_));
}

void RoundDialog::ShowError(const std::string& error) {
  if (!error.empty()) platform::ShowError("Error", error.c_str());
}

bool RoundDialog::AnyButtonPressed() const {
  return add_pressed_ || delete_pressed_ || load_pressed_ || save_pressed_ || export_pressed_;
}

void RoundDialog::ClearButtons() { add_pressed_ = delete_pressed_ = load_pressed_ = save_pressed_ = export_pressed_ = 0; }

}  // namespace nimbo
