// What ImplicitBeast stores in its configuration store, in writing order:
//   "program", "uvprogram", "normalprogram" (the surface, texture and normal
//   programs' texts), "grid" (samples along each side), "xmin", "xmax",
//   "ymin", "ymax", "zmin", "zmax" (the box sampled), "closed" (cap the
//   surface at the box's sides), "n_vars", then per user variable k "var%i"
//   (its name), "var%imin", "var%imax" and "var%ipos" (the dynamic
//   variable's initial position, 0..1); then the scene's and the material's
//   keys, which the effect writes.
#pragma once

#include <cstdint>
#include <span>

#include "core/settings_table.h"
#include "implicit_field.h"
#include "implicit_programs.h"
#include "orrery/config_store.h"
#include "orrery/host_context.h"

namespace nimbo::implicit {

struct VolumeSettings {
  int32_t grid;
  float xmin, xmax, ymin, ymax, zmin, zmax;
  int32_t closed;

  Box AsBox() const;
};

std::span<const SettingRow<VolumeSettings>> VolumeRows();

struct ImplicitSettings {
  ProgramSet programs;
  VolumeSettings volume;

  ImplicitSettings();  // the defaults
  void Sanitize();
};

void WriteImplicitSettings(orrery::ConfigStore& store, const ImplicitSettings& s);
// Reads every key with the current value as its default, then sanitizes.
void ReadImplicitSettings(orrery::ConfigStore& store, ImplicitSettings& s);
void DescribeImplicitSettings(orrery::HostContext* context);

}  // namespace nimbo::implicit
