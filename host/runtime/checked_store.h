// CheckedStore: the configuration store an effect reads a preset through.
//
// It answers every lookup from the effect's settings document exactly as the
// document does, except that each int or float the effect takes passes the
// check of setting_checks.h first, with the type the effect asks for and the
// range it describes:
//   - out of range (infinities included): clamped into the range;
//   - "nan", an infinite float without a range, or text that is no number
//     of that type ("abc" for an int): the effect keeps its default, the
//     value it passed in;
// each with one warning naming the key, the stored text and the range or
// the default. It also notes the element of every key it found, so that the
// caller can tell which of the preset's keys the effect never asked for.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

#include "orrery/config_store.h"
#include "runtime/effect_host.h"

namespace nimbo::host {

class CheckedStore final : public orrery::ConfigStore {
 public:
  // `source` names the values in warnings ("preset \"p.xml\"").
  CheckedStore(EffectHost& host, std::string source) : host_(host), source_(std::move(source)) {}

  void BeginWriting() override { host_.Store().BeginWriting(); }
  int32_t GetInt(const char* key, int32_t def) override;
  int32_t SetInt(const char* key, int32_t value) override { return host_.Store().SetInt(key, value); }
  float GetFloat(const char* key, float def) override;
  int32_t SetFloat(const char* key, float value) override { return host_.Store().SetFloat(key, value); }
  const char* GetString(const char* key, const char* def) override;
  int32_t SetString(const char* key, const char* value) override { return host_.Store().SetString(key, value); }
  std::string GetPath(const char* key, const char* def, bool* used_default) override;
  int32_t SetPath(const char* key, const char* path) override { return host_.Store().SetPath(key, path); }

  // Whether the effect asked for the key stored in element `handle` (a
  // handle of the document read, ConfigData::FindElement).
  bool WasRead(int32_t handle) const { return handle > 0 && size_t(handle) < read_.size() && read_[size_t(handle)]; }
  const std::vector<std::string>& Warnings() const { return warnings_; }

 private:
  // The checked number for `key`, or `def` with a warning; `def` alone when
  // the document has no such key.
  double Checked(const char* key, bool is_int, double def);
  void NoteRead(int32_t elem);
  void Warn(const std::string& key, std::string text);

  EffectHost& host_;
  std::string source_;
  std::vector<bool> read_;  // by element handle
  std::unordered_set<std::string> warned_;
  std::vector<std::string> warnings_;
};

// A stored text as warnings quote it: cut after 40 characters.
std::string QuotedValue(const std::string& text);

}  // namespace nimbo::host
