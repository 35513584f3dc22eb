// The setup dialog of a 3D effect with one material: the effect's own
// settings rows, then the shared scene's fields (background, Insert FX),
// and on OK the material editor.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/platform.h"
#include "core/settings_table.h"
#include "render3d/material.h"
#include "render3d/material_dialog.h"
#include "render3d/scene3d.h"

namespace nimbo {

// Edits the copies `edit`, `scene_edit` and `material`. False on Cancel
// (the copies then mean nothing); true on OK, with `material_edited` telling
// whether the material editor was closed with OK too.
template <class S>
bool RunSceneSettingsDialog(const char* title, const char* help_page, std::span<const SettingRow<S>> rows, S& edit,
                            SceneSettings& scene_edit, Material& material, bool* material_edited) {
  int32_t shown = 0;
  for (const SettingRow<S>& row : rows) shown += row.view.as == ShowAs::kHidden ? 0 : 1;
  const std::vector<orrery::DialogField> scene_fields = Scene3D::DialogFields(scene_edit, shown);
  SettingsDialog<S> dialog(rows, edit, {}, scene_fields);
  if (!dialog.Run(title, help_page)) return false;
  *material_edited = RunMaterialDialog(material, platform::MainWindow(), help_page) != 0;
  return true;
}

}  // namespace nimbo
