// SettingsDocument: the configuration store a host gives each effect, and the
// preset file format: an XML document with a ConfigData store over it.
//
// Everything is ConfigData's except the marker "!": ConfigData always reads it
// as 1, which would tell a fresh effect that its settings are already stored.
// Here GetInt("!", def) answers 1 only when the document holds a
// "Settings"/"ConfigData" block, and `def` otherwise, so an effect on a fresh
// document writes its defaults.
//
// Loading never half-succeeds: a text that does not parse, or has no
// "Settings", leaves the current document as it was and sets GetError().
// Saving writes PATH.tmp beside the file, syncs it and renames it over PATH,
// so a failed save never destroys the previous file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "orrery/config_store.h"
#include "framework/config_data.h"
#include "framework/xml_document.h"

namespace nimbo {

class SettingsDocument final : public orrery::ConfigStore {
 public:
  static constexpr size_t kMaxFileSize = size_t{16} << 20;

  SettingsDocument() = default;
  // The store points at this object's document.
  SettingsDocument(const SettingsDocument&) = delete;
  SettingsDocument& operator=(const SettingsDocument&) = delete;

  bool Load(std::string_view text);
  bool LoadFromFile(const std::string& path);
  bool SaveToFile(const std::string& path);
  const std::string& Text() const { return doc_.GetDoc(); }
  // Back to an empty document (a fresh store).
  void Clear();
  const std::string& GetError() const { return error_; }

  // For the host: dynamic variables export into the document, and ignored
  // keys are set on the store.
  XmlDocument& Document() { return doc_; }
  ConfigData& Config() { return config_; }

  void BeginWriting() override { config_.BeginWriting(); }
  int32_t GetInt(const char* key, int32_t def) override;
  int32_t SetInt(const char* key, int32_t value) override { return config_.SetInt(key, value); }
  float GetFloat(const char* key, float def) override { return config_.GetFloat(key, def); }
  int32_t SetFloat(const char* key, float value) override { return config_.SetFloat(key, value); }
  const char* GetString(const char* key, const char* def) override { return config_.GetString(key, def); }
  int32_t SetString(const char* key, const char* value) override { return config_.SetString(key, value); }
  std::string GetPath(const char* key, const char* def, bool* used_default) override {
    return config_.GetPath(key, def, used_default);
  }
  int32_t SetPath(const char* key, const char* path) override { return config_.SetPath(key, path); }

 private:
  bool Fail(std::string message);

  XmlDocument doc_;
  ConfigData config_{&doc_};
  std::string error_;
};

}  // namespace nimbo
