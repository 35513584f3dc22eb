// The model of ImplicitBeast's setup dialog, the program editor: the three
// programs, the box and grid, the user variables (add, delete, range,
// initial position), the scene, and the file buttons (load and save a
// program file, save as 3DS).
//
// Each round the host's dialog service shows is looked at when the user
// closes it with OK: a pressed button does its work and the dialog opens
// again with the result; otherwise the programs are compiled, and one that
// fails is named at the top of the dialog with its line ("The texture
// program does not compile: error in line 2 (counted from 0).") and marked
// at its field, and the dialog opens again: OK is refused until every
// program compiles or the user cancels. Cancel leaves everything as it was.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "implicit_settings.h"
#include "orrery/services.h"
#include "render3d/round_dialog.h"
#include "render3d/scene3d.h"

namespace nimbo::implicit {

class ProgramEditor final : public SourceEditor<ImplicitSettings, ProgramSet, CompiledPrograms> {
 public:
  ProgramEditor(const ImplicitSettings& settings, const SceneSettings& scene, Compiler compile)
      : SourceEditor(settings, scene, std::move(compile)) {}

  // Rounds until OK with programs that compile (true) or Cancel (false), or
  // kMaxRounds of OK without a mend.
  bool Run(const char* help_page) { return RunRounds("ImplicitBeast program editor", help_page); }

  // Looks at a round closed with OK: true when the dialog is done.
  bool AfterOk() override;

  // The program that failed in the last round (-1: none) and its line.
  int32_t ErrorProgram() const { return error_program_; }
  const std::optional<int>& ErrorLine() const { return error_line_; }
  const std::string& StatusText() const { return status_; }

 private:
  void BuildFields() override;

  std::vector<std::string> hints_;
  int32_t error_program_ = -1;
  std::optional<int> error_line_;
  std::string status_ = "All programs compile.";
};

}  // namespace nimbo::implicit
