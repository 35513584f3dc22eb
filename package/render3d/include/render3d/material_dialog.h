// The material editor as a dialog model for the host's DialogService: every
// field of a Material record with the editor's texts, edited on a copy.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orrery/services.h"
#include "render3d/material.h"

namespace nimbo {

// A Material in the value types dialog fields bind to, and back.
struct MaterialEdit {
  std::string name;
  int32_t usesectex = 0, sectype = 0, trans_choice = 0, wire = 0, invert_tex2 = 0, twosided = 0;
  struct Layer {
    int32_t source = 1;  // 0 = input screen, 1 = picture file
    std::string bitmap;
    float blur = 0, l_x = 0, l_y = 0;
    int32_t base_clr = 0, spec_clr = 0, spec_power = 0, diff_clr = 0, diff = 0, freeze = 0, w = 0, h = 0;
  } tex[2];
};
MaterialEdit ToEdit(const Material& m);
// `m` with the edited values; run-time fields and a picture texmode other
// than 1 are kept as they were.
Material FromEdit(const MaterialEdit& e, const Material& m);

// The dialog's fields bound to `edit`, in the editor's order: the material's
// own fields, then layer 1 ("first texture") and layer 2 ("second
// texture"), the second ones enabled only with "enable second texture".
std::vector<orrery::DialogField> MaterialDialogFields(MaterialEdit& edit);

// Runs the editor on a copy of `m`: 1 and `m` updated on OK, 0 and `m`
// untouched on Cancel.
int32_t RunMaterialDialog(Material& m, void* owner, const char* help_page);

}  // namespace nimbo
