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

void ProgramEditor::BuildFields() {
  hints_.assign(kProgramCount, "");

  AddField(status_.c_str(), F::kLabel, nullptr);
  for (int32_t k = 0; k < kProgramCount; ++k) {
    hints_[size_t(k)] =
        (k == error_program_ ? "<< this program does not compile; " : "") + std::string(kProgramHints[k]);
    AddField(kProgramLabels[k], F::kText, &edit_.programs.text[size_t(k)], 0, double(kMaxProgramText), nullptr,
        hints_[size_t(k)].c_str());
  }
  VolumeSettings& v = edit_.volume;
  for (const SettingRow<VolumeSettings>& row : VolumeRows()) {
    if (auto p = std::get_if<int32_t VolumeSettings::*>(&row.field))
      AddField(row.label, row.minimum == 0 && row.maximum == 1 ? F::kBool : F::kInt, &(v.*(*p)), row.minimum, row.maximum,
          nullptr, row.help);
    else if (auto f = std::get_if<float VolumeSettings::*>(&row.field))
      AddField(row.label, F::kFloat, &(v.*(*f)), row.minimum, row.maximum, nullptr, row.help);
  }

  AddVariableListFields(edit_.programs.vars, "name of a user variable to add", [&](UserVariable& u) {
    AddField("minimum", F::kFloat, &u.minimum, -1e9, 1e9, nullptr, "the value at position 0");
    AddField("maximum", F::kFloat, &u.maximum, -1e9, 1e9, nullptr, "the value at position 1");
    AddField("initial position", F::kFloat, &u.position, 0, 1, nullptr, "0..1, the dynamic variable's start");
  });

  AddSceneFields(scene_);
  AddFileFields("program file", kProgramFilter, "Load program...", "Save program...");
}

bool ProgramEditor::AfterOk() {
  const bool none_pressed = WorkButtons(
      edit_.programs, "A program set holds at most 255 user variables.",
      [&](const std::string& path) {
        // A file replaces the programs only when it reads and compiles whole.
        ProgramSet loaded;
        std::string error = ReadProgramFile(path, loaded);
        if (error.empty()) error = compile_(loaded).ErrorText();
        if (error.empty()) edit_.programs = std::move(loaded);
        return error;
      },
      [&](const std::string& path) { return WriteProgramFile(path, edit_.programs); });
  edit_.Sanitize();

  // Every round recompiles, so the status line is always up to date.
  const CompiledPrograms compiled = compile_(edit_.programs);
  error_program_ = compiled.failed;
  error_line_ = compiled.line;
  status_ = compiled.Ok() ? "All programs compile." : compiled.ErrorText();
  return none_pressed && compiled.Ok() && !SelectionMoved();
}

}  // namespace nimbo::implicit
