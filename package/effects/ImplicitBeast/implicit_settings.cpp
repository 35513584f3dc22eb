#include "implicit_settings.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace nimbo::implicit {
namespace {

constexpr float kBound = 1e6f;
constexpr SettingRow<VolumeSettings> kRows[] = {
    {"grid", &VolumeSettings::grid, 48, nullptr, kMinGrid, kMaxGrid, "Grid",
     "samples along each side of the box (detail; the work grows with its cube)"},
    {"xmin", &VolumeSettings::xmin, -1.5, nullptr, -kBound, kBound, "X minimum", "the box sampled: smallest X"},
    {"xmax", &VolumeSettings::xmax, 1.5, nullptr, -kBound, kBound, "X maximum", "the box sampled: largest X"},
    {"ymin", &VolumeSettings::ymin, -1.5, nullptr, -kBound, kBound, "Y minimum", "the box sampled: smallest Y"},
    {"ymax", &VolumeSettings::ymax, 1.5, nullptr, -kBound, kBound, "Y maximum", "the box sampled: largest Y"},
    {"zmin", &VolumeSettings::zmin, -1.5, nullptr, -kBound, kBound, "Z minimum", "the box sampled: smallest Z"},
    {"zmax", &VolumeSettings::zmax, 1.5, nullptr, -kBound, kBound, "Z maximum", "the box sampled: largest Z"},
    {"closed", &VolumeSettings::closed, 1, nullptr, 0, 1, "Closed border",
     "cap the surface where it leaves the box, so it stays closed"},
};

constexpr const char* kProgramKeys[kProgramCount] = {"program", "uvprogram", "normalprogram"};
constexpr const char* kProgramHelp[kProgramCount] = {
    "the surface program: NAME=expression lines of X, Y, Z, T, user variables; the last assigns FUN (inside: < 0)",
    "the texture program: assigns U and V at each surface point (empty: environment map)",
    "the normal program: assigns NX, NY and NZ at each surface point (empty: the field's gradient)"};

std::string Key(const char* pattern, size_t k) {
  char key[64];
  std::snprintf(key, sizeof key, pattern, int(k));
  return key;
}

}  // namespace

Box VolumeSettings::AsBox() const {
  Box box;
  box.minimum[0] = xmin, box.maximum[0] = xmax;
  box.minimum[1] = ymin, box.maximum[1] = ymax;
  box.minimum[2] = zmin, box.maximum[2] = zmax;
  return SaneBox(box);
}

std::span<const SettingRow<VolumeSettings>> VolumeRows() { return kRows; }

ImplicitSettings::ImplicitSettings() { ApplyDefaults<VolumeSettings>(kRows, volume); }

void ImplicitSettings::Sanitize() {
  programs.Sanitize();
  volume.grid = std::clamp(volume.grid, kMinGrid, kMaxGrid);
  volume.closed = volume.closed != 0;
  // Each bound is kept as the user set it (within its range); the box they
  // make is put in order only when it is used (AsBox), so a minimum set
  // before its maximum is not lost on the way.
  for (float* bound : {&volume.xmin, &volume.ymin, &volume.zmin})
    *bound = std::isfinite(*bound) ? std::clamp(*bound, -kBound, kBound) : -1.5f;
  for (float* bound : {&volume.xmax, &volume.ymax, &volume.zmax})
    *bound = std::isfinite(*bound) ? std::clamp(*bound, -kBound, kBound) : 1.5f;
}

void WriteImplicitSettings(orrery::ConfigStore& store, const ImplicitSettings& s) {
  for (int32_t k = 0; k < kProgramCount; ++k) store.SetString(kProgramKeys[k], s.programs.text[size_t(k)].c_str());
  WriteRows<VolumeSettings>(store, kRows, s.volume);
  store.SetInt("n_vars", int32_t(s.programs.vars.size()));
  for (size_t k = 0; k < s.programs.vars.size(); ++k) {
    const UserVariable& v = s.programs.vars[k];
    store.SetString(Key("var%i", k).c_str(), v.name.c_str());
    store.SetFloat(Key("var%imin", k).c_str(), v.minimum);
    store.SetFloat(Key("var%imax", k).c_str(), v.maximum);
    store.SetFloat(Key("var%ipos", k).c_str(), v.position);
  }
}

void ReadImplicitSettings(orrery::ConfigStore& store, ImplicitSettings& s) {
  for (int32_t k = 0; k < kProgramCount; ++k) {
    std::string& text = s.programs.text[size_t(k)];
    const char* value = store.GetString(kProgramKeys[k], text.c_str());
    if (value != text.c_str()) text = value;
  }
  ReadRows<VolumeSettings>(store, kRows, s.volume);
  // A store without "n_vars" keeps the current list.
  const int32_t count = store.GetInt("n_vars", -1);
  if (count >= 0) {
    // The stored list replaces the current one; names go through the
    // naming rules again, so a hand-edited store cannot smuggle in a
    // reserved or repeated name.
    ProgramSet read = s.programs;
    read.vars.clear();
    for (size_t k = 0; k < size_t(std::clamp(count, 0, int32_t(kMaxUserVariables))); ++k) {
      const char* name = store.GetString(Key("var%i", k).c_str(), nullptr);
      if (!name || AddUserVariable(read, name) != AddVariable::kAdded) continue;
      UserVariable& v = read.vars.back();
      v.minimum = store.GetFloat(Key("var%imin", k).c_str(), v.minimum);
      v.maximum = store.GetFloat(Key("var%imax", k).c_str(), v.maximum);
      v.position = store.GetFloat(Key("var%ipos", k).c_str(), v.position);
    }
    s.programs.vars = std::move(read.vars);
  }
  s.Sanitize();
}

void DescribeImplicitSettings(orrery::HostContext* context) {
  if (!context) return;
  for (int32_t k = 0; k < kProgramCount; ++k)
    context->DescribeSetting({kProgramKeys[k], orrery::SettingType::kString, 0, 0, kProgramHelp[k]});
  // The user variables ("n_vars", "var%i"...) are not described: they are
  // a list edited through the editor and the program files, not values a
  // host could set one by one.
  DescribeRows<VolumeSettings>(context, kRows);
}

}  // namespace nimbo::implicit
