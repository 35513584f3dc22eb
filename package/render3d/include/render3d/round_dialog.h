// RoundDialog: the frame of an editor dialog that opens round after round,
// shared by the formula and program editors of the 3D effects.
//
// The host's dialog service shows one modal round at a time and hands back
// the fields. When a round closes with OK the editor looks at it (AfterOk):
// a pressed button does its work and the dialog opens again with the
// result; otherwise the editor checks what was typed and either is done or
// opens again with the trouble named. Cancel ends it with nothing taken.
//
// What both editors show alike lives here too: the user-variable list (a
// name to add, the "Add variable" button, the variable choice, "Delete
// variable") and the file buttons at the bottom (a file with its load and
// save buttons, then "Save as 3DS..."). SourceEditor below is the rest both
// editors share: the working copies, the compile step, and the order a
// round's buttons are worked in.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "orrery/services.h"
#include "render3d/scene3d.h"

namespace nimbo {

class RoundDialog {
 public:
  // Writes the mesh last drawn as a .3ds file: "" or the message to show.
  using Exporter = std::function<std::string(const std::string& path)>;

  // A service that keeps answering OK without mending what fails gives up
  // after this many rounds, as Cancel.
  static constexpr int32_t kMaxRounds = 200;

  virtual ~RoundDialog() = default;

  void SetExport3DS(Exporter exporter) { export_3ds_ = std::move(exporter); }

  // ---- one round, for hosts and tests that drive the model directly ----
  // The fields of the next round, bound to the editor's working copy.
  const std::vector<orrery::DialogField>& Fields();
  // Looks at a round the user closed with OK: true when the dialog is done.
  virtual bool AfterOk() = 0;

 protected:
  // Rounds titled `title` until AfterOk is done (true) or Cancel (false).
  bool RunRounds(const char* title, const char* help_page);

  virtual void BuildFields() = 0;
  void AddField(const char* label, orrery::DialogFieldType type, void* value, double lo = 0, double hi = 0,
                const char* choices = nullptr, const char* hint = nullptr);

  // The scene's fields (background, Insert FX) bound to `scene`.
  void AddSceneFields(SceneSettings& scene);

  // ---- the user-variable list ----
  // "new variable" and "Add variable".
  void AddNewVariableFields(const char* hint);
  // Keeps the selection within `names` and, when there are any, adds the
  // "variable" choice; false when the list is empty (the editor then shows
  // no fields of a selected variable).
  bool AddVariableChoice(const std::vector<std::string>& names);
  void AddDeleteVariableButton();
  // The selection as the round showed it: the variable whose fields the
  // user edited (the choice may have moved to another meanwhile).
  int32_t ShownSelected() const { return shown_selected_; }
  int32_t Selected() const { return selected_; }
  // The round closed with the choice moved: the dialog shows the newly
  // chosen variable next.
  bool SelectionMoved() const { return selected_ != shown_selected_; }

  // What "Add variable" did to a list now `count` long; `full_message` is
  // the warning when the list is full. Any of the editors' AddVariable
  // results (their kAdded ... kFull).
  template <class Result>
  void AfterAddVariable(Result result, size_t count, const char* full_message) {
    if (result == Result::kAdded) AddedVariable(count);
    else if (result == Result::kEmpty) ShowEmptyName();
    else if (result == Result::kRefused) new_variable_.clear();
    else if (result == Result::kFull) ShowFull(full_message);
  }
  // "Delete variable": the variable shown goes, the one before it is chosen.
  template <class Var>
  void DeleteShownVariable(std::vector<Var>& vars) {
    if (vars.empty()) return;
    vars.erase(vars.begin() + std::clamp(shown_selected_, 0, int32_t(vars.size()) - 1));
    selected_ = std::max(0, shown_selected_ - 1);
  }

  // ---- the file buttons ----
  // `file_label` with `filter`, its load and save buttons, then "3DS file"
  // and "Save as 3DS...".
  void AddFileFields(const char* file_label, const char* filter, const char* load_label, const char* save_label);
  const std::string& FilePath() const { return file_path_; }
  // Runs the export when "Save as 3DS..." was pressed; a failure is shown.
  void ExportIfPressed();
  // Shows `error` (caption "Error") unless it is empty.
  static void ShowError(const std::string& error);

  // Whether any button was pressed this round; ClearButtons resets them all.
  bool AnyButtonPressed() const;
  void ClearButtons();

  std::string new_variable_;
  int32_t add_pressed_ = 0, delete_pressed_ = 0, load_pressed_ = 0, save_pressed_ = 0, export_pressed_ = 0;

 private:
  void AddedVariable(size_t count);
  static void ShowEmptyName();
  static void ShowFull(const char* message);

  std::vector<orrery::DialogField> fields_;
  Exporter export_3ds_;
  int32_t selected_ = 0, shown_selected_ = 0;
  std::string variable_choices_;
  std::string file_path_, path_3ds_;
};

// ---- an editor of a compiled source -------------------------------------------------
// The editor of an effect whose settings `Settings` hold a source the effect
// compiles (`Source`: the formula set, the programs; its user variables in
// `Source::vars`, each with a `name`) into `Compiled`. It edits copies of
// the settings and the scene, handed back on OK, and checks the source the
// way the effect compiles it. How a failure is shown (a formula by its
// index, a program with its line) is each editor's own.
template <class Settings, class Source, class Compiled>
class SourceEditor : public RoundDialog {
 public:
  // Compiles a source the way the effect does (under its lock).
  using Compiler = std::function<Compiled(const Source&)>;

  const Settings& Result() const { return edit_; }
  const SceneSettings& SceneResult() const { return scene_; }

 protected:
  SourceEditor(const Settings& settings, const SceneSettings& scene, Compiler compile)
      : edit_(settings), scene_(scene), compile_(std::move(compile)) {}

  // The user-variable list of `vars`: "new variable" (with `hint`), "Add
  // variable" and, when there are any, the choice of a variable,
  // `selected_fields(variable)` bound to the chosen one, "Delete variable".
  template <class Var, class SelectedFields>
  void AddVariableListFields(std::vector<Var>& vars, const char* hint, SelectedFields selected_fields) {
    AddNewVariableFields(hint);
    std::vector<std::string> names;
    for (const Var& v : vars) names.push_back(v.name);
    if (!AddVariableChoice(names)) return;
    selected_fields(vars[size_t(Selected())]);
    AddDeleteVariableButton();
  }

  // Works the buttons of a round closed with OK, in the order the dialog
  // shows them: "Add variable" (the source's own AddUserVariable, with
  // `full_message` when its list is full), "Delete variable", load and save
  // (`load(path)` and `save(path)` return "" or the error to show), "Save as
  // 3DS...". Clears them; true when none was pressed.
  template <class Load, class Save>
  bool WorkButtons(Source& source, const char* full_message, Load load, Save save) {
    const bool pressed = AnyButtonPressed();
    if (add_pressed_) AfterAddVariable(AddUserVariable(source, new_variable_), source.vars.size(), full_message);
    if (delete_pressed_) DeleteShownVariable(source.vars);
    if (load_pressed_) ShowError(load(FilePath()));
    if (save_pressed_) ShowError(save(FilePath()));
    ExportIfPressed();
    ClearButtons();
    return !pressed;
  }

  Settings edit_;
  SceneSettings scene_;
  Compiler compile_;
};

}  // namespace nimbo
