// Settings declared once: each effect keeps its stored settings in a plain
// struct and describes them in one constant table of rows (key, field,
// default, range, help). The table drives reading and writing the
// configuration store (in the table's order, which is the order the effect
// writes its keys), the metadata a host shows, and the generic setup dialog.
//
// Keys with indices formatted in (alpha-map points, morph lines) are not table
// rows: effects read and write those after the table.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "orrery/config_store.h"
#include "orrery/host_context.h"
#include "orrery/services.h"
#include "core/platform.h"

namespace nimbo {

template <class S>
struct SettingRow {
  const char* key;
  std::variant<int32_t S::*, float S::*, std::string S::*> field;
  double def;            // numbers
  const char* def_text;  // strings
  double minimum;
  double maximum;
  const char* help;
  bool is_path = false;  // string rows stored as "path"
};

template <class S>
void ApplyDefaults(std::span<const SettingRow<S>> rows, S& s) {
  for (const SettingRow<S>& row : rows) {
    if (auto p = std::get_if<int32_t S::*>(&row.field)) s.*(*p) = int32_t(row.def);
    else if (auto f = std::get_if<float S::*>(&row.field)) s.*(*f) = float(row.def);
    else s.*std::get<std::string S::*>(row.field) = row.def_text ? row.def_text : "";
  }
}

// Reads every row with the current value as the default, so a missing key
// keeps what the effect has.
template <class S>
void ReadRows(orrery::ConfigStore& store, std::span<const SettingRow<S>> rows, S& s) {
  for (const SettingRow<S>& row : rows) {
    if (auto p = std::get_if<int32_t S::*>(&row.field)) {
      s.*(*p) = store.GetInt(row.key, s.*(*p));
    } else if (auto f = std::get_if<float S::*>(&row.field)) {
      s.*(*f) = store.GetFloat(row.key, s.*(*f));
    } else {
      std::string& text = s.*std::get<std::string S::*>(row.field);
      if (row.is_path) {
        text = store.GetPath(row.key, text.c_str(), nullptr);
      } else {
        const char* value = store.GetString(row.key, text.c_str());
        if (value != text.c_str()) text = value;
      }
    }
  }
}

template <class S>
void WriteRows(orrery::ConfigStore& store, std::span<const SettingRow<S>> rows, const S& s) {
  for (const SettingRow<S>& row : rows) {
    if (auto p = std::get_if<int32_t S::*>(&row.field)) store.SetInt(row.key, s.*(*p));
    else if (auto f = std::get_if<float S::*>(&row.field)) store.SetFloat(row.key, s.*(*f));
    else if (row.is_path) store.SetPath(row.key, (s.*std::get<std::string S::*>(row.field)).c_str());
    else store.SetString(row.key, (s.*std::get<std::string S::*>(row.field)).c_str());
  }
}

template <class S>
orrery::SettingType RowType(const SettingRow<S>& row) {
  if (std::holds_alternative<int32_t S::*>(row.field)) return orrery::SettingType::kInt;
  if (std::holds_alternative<float S::*>(row.field)) return orrery::SettingType::kFloat;
  return row.is_path ? orrery::SettingType::kPath : orrery::SettingType::kString;
}

template <class S>
void DescribeRows(orrery::HostContext* context, std::span<const SettingRow<S>> rows) {
  if (!context) return;
  for (const SettingRow<S>& row : rows) {
    context->DescribeSetting({row.key, RowType(row), row.minimum, row.maximum, row.help});
  }
}

// Dialog fields bound to `s` (normally a working copy the dialog edits).
template <class S>
std::vector<orrery::DialogField> DialogFieldsFor(std::span<const SettingRow<S>> rows, S& s) {
  std::vector<orrery::DialogField> fields;
  for (const SettingRow<S>& row : rows) {
    orrery::DialogField field{row.help ? row.help : row.key, orrery::DialogFieldType::kInt, nullptr,
                              row.minimum, row.maximum, nullptr, nullptr};
    if (auto p = std::get_if<int32_t S::*>(&row.field)) {
      field.value = &(s.*(*p));
      // An int that can only be 0 or 1 is a switch.
      if (row.minimum == 0 && row.maximum == 1) field.type = orrery::DialogFieldType::kBool;
    } else if (auto f = std::get_if<float S::*>(&row.field)) {
      field.type = orrery::DialogFieldType::kFloat;
      field.value = &(s.*(*f));
    } else {
      field.type = row.is_path ? orrery::DialogFieldType::kPath : orrery::DialogFieldType::kText;
      field.value = &(s.*std::get<std::string S::*>(row.field));
    }
    fields.push_back(field);
  }
  return fields;
}

// The generic setup dialog over a settings table: the user edits a copy of
// `settings` through the host's dialog service; on OK the copy replaces the
// settings and `apply` runs (to recompute what depends on them), both under
// `lock`, so Render never sees half an edit. 1 on OK, 0 on Cancel.
template <class S, class Lock, class Apply>
int32_t RunSettingsDialog(const char* title, const char* help_page, std::span<const SettingRow<S>> rows,
                          S& settings, Lock& lock, Apply apply) {
  S copy;
  {
    std::lock_guard guard(lock);
    copy = settings;
  }
  std::vector<orrery::DialogField> fields = DialogFieldsFor(rows, copy);
  const orrery::DialogModel model{title, fields.data(), int32_t(fields.size()), help_page, platform::MainWindow()};
  if (!orrery::GetDialogService()->RunModal(model)) return 0;
  std::lock_guard guard(lock);
  settings = copy;
  apply();
  return 1;
}

}  // namespace nimbo
