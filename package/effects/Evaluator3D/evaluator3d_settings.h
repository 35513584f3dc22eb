// What Evaluator3D stores in its configuration store, in writing order:
//   "expr_a" ... "expr_h", "expr_x", "expr_y", "expr_z", "expr_u", "expr_v",
//   "expr_nx", "expr_ny", "expr_nz", "expr_u2", "expr_v2", "expr_nx2",
//   "expr_ny2", "expr_nz2", "expr_cx", "expr_cy", "expr_cz", "expr_tx",
//   "expr_ty", "expr_tz", "expr_roll", "expr_zoom", "rangei", "rangej",
//   "uvmode1", "uvmode2", "front", "back", "n_dynvars" (a name that is
//   missing or refused becomes "var%i"), then per user
//   variable k "dyn%i" (its name) with "dyn%imin", "dyn%imax", "dyn%ivalue"
//   and "dyn%ion", "infotext", "hmap", "loopi", "loopj", the background and
//   Insert FX keys of the 3D scaffolding ("bgtype", "bgcolor", "insertfx"),
//   "ipattern", "jpattern", the material keys "texinfo1", "texinfo2",
//   "invert_tex2", "sectex", "sectype", "transparent", "wire", "freeze1",
//   "freeze2", "texpath1", "texpath2", "tex1", "tex2", and last
//   "timespeed" (the initial value of "Evaluator time (1.0 = realtime)").
//
// The material keys describe the effect's one material (TextureKeys): for
// each layer n = 1, 2, "texinfo<n>" is its texture source (0 = the effect's
// texture input n, 1 = a picture file), "texpath<n>" the picture's full path
// and "tex<n>" its file name alone, by which a picture whose folder moved
// is found again; "freeze<n>" marks an input screen as static. "sectex"
// switches the second texture on, "sectype" says how it combines (0 add,
// 1 subtract, 2 blue as opacity), "invert_tex2" inverts its colours,
// "transparent" is -1 (opaque), 0 (50%) or 1 (additive) and "wire" draws
// the edges only.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "formula_set.h"
#include "orrery/config_store.h"
#include "orrery/host_context.h"

namespace nimbo::e3d {

struct TextureKeys {
  int32_t texinfo[2] = {1, 1};  // as a fresh material: pictures (none named: the lit light map)
  int32_t invert_tex2 = 0;
  int32_t sectex = 0;
  int32_t sectype = 0;
  int32_t transparent = -1;
  int32_t wire = 0;
  int32_t freeze[2] = {0, 0};
  std::string texpath[2];
  std::string tex[2];
};

// The range of the time speed, stored and automated.
inline constexpr float kMinTimeSpeed = -4.0f, kMaxTimeSpeed = 4.0f;

struct EvaluatorSettings {
  FormulaSet set;
  TextureKeys texture;
  float timespeed = 1.0f;
};

// The scaffolding's own keys ("bgtype", "bgcolor", "insertfx") are read and
// written by the caller at their place in the order.
using SceneKeys = std::function<void(orrery::ConfigStore&)>;

void WriteEvaluatorSettings(orrery::ConfigStore& store, const EvaluatorSettings& s, const SceneKeys& scene);
// Reads every key with the current value as its default, then brings the
// values into their ranges.
void ReadEvaluatorSettings(orrery::ConfigStore& store, EvaluatorSettings& s, const SceneKeys& scene);
// What each key holds, for the host's settings list.
// `scene_describe` describes the scaffolding's keys at their place.
void DescribeEvaluatorSettings(orrery::HostContext* context, const std::function<void()>& scene_describe);

}  // namespace nimbo::e3d
