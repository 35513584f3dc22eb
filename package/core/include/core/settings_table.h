// Settings declared once: each effect keeps its stored settings in a plain
// struct without defaults and describes them in one constant table of rows
// (key, field, default, range, label, how the dialog shows it). The table
// drives the defaults, reading and writing the configuration store (in the
// table's order, which is the order the effect writes its keys), the
// metadata a host shows (and the help page is checked against), and the
// setup dialog.
//
// Keys with indices formatted in (alpha-map points, morph lines) are not table
// rows: effects read and write those after the table.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/platform.h"
#include "orrery/config_store.h"
#include "orrery/host_context.h"
#include "orrery/services.h"

namespace nimbo {

// How the setup dialog shows one stored setting. The zero value means "as
// its type says": an int is a number field (a switch when its range is
// 0..1), a float a number field, a string a text field (a path field for a
// path row).
enum class ShowAs : uint8_t { kAsType, kHidden, kColor, kChoice };

struct DialogView {
  ShowAs as = ShowAs::kAsType;
  const char* choices = nullptr;     // kChoice: "a|b|c", the stored int is the index
  const char* hint = nullptr;        // shown beside the field: its unit, what it does
  double scale = 1.0;                // float rows: the dialog shows the stored value times this
  const char* enabled_by = nullptr;  // key of a choice or switch row this field applies under,
  int32_t enabled_value = 0;         // and the value that row must hold;
  int32_t enabled_by_own = -1;       // or the index of one of the effect's own `before` fields
};

// One stored setting: its key, where it lives in the settings struct, its
// default (numbers in `def`, strings in `def_text`), its range, the label the
// dialog shows, what it means as a host lists it (`help`; the label when
// null), and how the dialog shows it. The struct itself carries no defaults:
// ApplyDefaults fills it from here.
template <class S>
struct SettingRow {
  const char* key;
  std::variant<int32_t S::*, float S::*, std::string S::*> field;
  double def;            // numbers
  const char* def_text;  // strings
  double minimum;
  double maximum;
  const char* label;
  const char* help = nullptr;
  bool is_path = false;  // string rows stored as "path"
  DialogView view = {};
};

template <class S>
void ApplyDefaults(std::span<const SettingRow<S>> rows, S& s) {
  for (const SettingRow<S>& row : rows) {
    if (auto p = std::get_if<int32_t S::*>(&row.field))
      s.*(*p) = int32_t(row.def);
    else if (auto f = std::get_if<float S::*>(&row.field))
      s.*(*f) = float(row.def);
    else
      s.*std::get<std::string S::*>(row.field) = row.def_text ? row.def_text : "";
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
    if (auto p = std::get_if<int32_t S::*>(&row.field))
      store.SetInt(row.key, s.*(*p));
    else if (auto f = std::get_if<float S::*>(&row.field))
      store.SetFloat(row.key, s.*(*f));
    else if (row.is_path)
      store.SetPath(row.key, (s.*std::get<std::string S::*>(row.field)).c_str());
    else
      store.SetString(row.key, (s.*std::get<std::string S::*>(row.field)).c_str());
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
    context->DescribeSetting({row.key, RowType(row), row.minimum, row.maximum, row.help ? row.help : row.label});
  }
}

// The setup dialog over a settings table: one field per shown row, bound to
// `edit` (normally a working copy), between fields of the effect's own
// (`before` and `after`: labels, buttons, values that are not stored). Rows
// name the row they depend on by key; the effect's own fields give
// `enabled_by` as an index into the whole list, so fields put `before` the
// rows count from 0.
template <class S>
class SettingsDialog {
 public:
  SettingsDialog(std::span<const SettingRow<S>> rows, S& edit, std::span<const orrery::DialogField> before = {},
                 std::span<const orrery::DialogField> after = {})
      : SettingsDialog({rows}, edit, before, after) {}
  // For an effect whose table is split around keys that are no rows (the
  // tables' rows follow one another in the dialog).
  SettingsDialog(std::initializer_list<std::span<const SettingRow<S>>> tables, S& edit,
                 std::span<const orrery::DialogField> before = {}, std::span<const orrery::DialogField> after = {})
      : edit_(edit) {
    size_t row_count = 0;
    for (std::span<const SettingRow<S>> rows : tables) row_count += rows.size();
    scaled_.reserve(row_count);  // fields point into it: it must never move
    fields_.assign(before.begin(), before.end());
    std::vector<std::pair<const SettingRow<S>*, size_t>> shown;  // each shown row and its field
    for (std::span<const SettingRow<S>> rows : tables) {
      for (const SettingRow<S>& row : rows) {
        if (row.view.as == ShowAs::kHidden) continue;
        shown.push_back({&row, fields_.size()});
        fields_.push_back(FieldFor(row));
      }
    }
    for (const auto& [row, at] : shown) {
      if (row->view.enabled_by_own >= 0 && size_t(row->view.enabled_by_own) < before.size()) {
        fields_[at].enabled_by = row->view.enabled_by_own;
        fields_[at].enabled_value = row->view.enabled_value;
      }
      if (!row->view.enabled_by) continue;
      for (const auto& [other, index] : shown) {
        if (std::string_view(other->key) == row->view.enabled_by) fields_[at].enabled_by = int32_t(index);
      }
      fields_[at].enabled_value = row->view.enabled_value;
    }
    fields_.insert(fields_.end(), after.begin(), after.end());
  }
  SettingsDialog(const SettingsDialog&) = delete;
  SettingsDialog& operator=(const SettingsDialog&) = delete;

  // Runs the dialog modally through the host's dialog service. On OK the
  // edited values are in `edit` and the result is true; on Cancel `edit`
  // keeps whatever the host wrote (callers edit a copy).
  bool Run(const char* title, const char* help_page) {
    orrery::DialogService* service = orrery::GetDialogService();
    const orrery::DialogModel model{title, fields_.data(), int32_t(fields_.size()), help_page, platform::MainWindow()};
    if (!service || !service->RunModal(model)) return false;
    // A scaled value the user left alone keeps its stored bits (the way there
    // and back could round).
    for (const Scaled& s : scaled_) {
      if (s.shown != s.initial) edit_.*(s.field) = float(double(s.shown) / s.scale);
    }
    return true;
  }

  std::span<const orrery::DialogField> Fields() const { return fields_; }

 private:
  struct Scaled {
    float S::*field;
    double scale;
    float shown;
    float initial;
  };

  orrery::DialogField FieldFor(const SettingRow<S>& row) {
    const DialogView& view = row.view;
    orrery::DialogField field{row.label ? row.label : row.key,
                              orrery::DialogFieldType::kInt,
                              nullptr,
                              row.minimum,
                              row.maximum,
                              nullptr,
                              view.hint};
    if (auto p = std::get_if<int32_t S::*>(&row.field)) {
      field.value = &(edit_.*(*p));
      if (view.as == ShowAs::kColor) {
        field.type = orrery::DialogFieldType::kColor;
      } else if (view.as == ShowAs::kChoice) {
        field.type = orrery::DialogFieldType::kChoice;
        field.choices = view.choices;
      } else if (row.minimum == 0 && row.maximum == 1) {
        field.type = orrery::DialogFieldType::kBool;
      }
    } else if (auto f = std::get_if<float S::*>(&row.field)) {
      field.type = orrery::DialogFieldType::kFloat;
      if (view.scale != 1.0) {
        const float shown = float(double(edit_.*(*f)) * view.scale);
        scaled_.push_back({*f, view.scale, shown, shown});
        field.value = &scaled_.back().shown;
        field.minimum = row.minimum * view.scale;
        field.maximum = row.maximum * view.scale;
      } else {
        field.value = &(edit_.*(*f));
      }
    } else {
      field.type = row.is_path ? orrery::DialogFieldType::kPath : orrery::DialogFieldType::kText;
      field.value = &(edit_.*std::get<std::string S::*>(row.field));
    }
    return field;
  }

  S& edit_;
  std::vector<Scaled> scaled_;
  std::vector<orrery::DialogField> fields_;
};

// The whole setup dialog of an effect whose settings are a table: the user
// edits a copy of `settings`; on OK the copy replaces the settings and
// `apply` runs (to recompute what depends on them), both under `lock`, so
// Render never sees half an edit. 1 on OK, 0 on Cancel.
template <class S, class Lock, class Apply>
int32_t RunSettingsDialog(const char* title, const char* help_page, std::span<const SettingRow<S>> rows, S& settings,
                          Lock& lock, Apply apply) {
  S copy;
  {
    std::lock_guard guard(lock);
    copy = settings;
  }
  SettingsDialog<S> dialog(rows, copy);
  if (!dialog.Run(title, help_page)) return 0;
  std::lock_guard guard(lock);
  settings = copy;
  apply();
  return 1;
}

}  // namespace nimbo
