// Orrery host SDK: the configuration store through which an effect saves and
// restores its settings.
//
// Values are named and typed ("int", "float", "string", "path"). Every get
// answers the caller's default when the key is missing. Every set answers 1
// on success and 0 when the store cannot take values. Keys are compared
// exactly (case-sensitive).
//
// The integer key "!" is the marker that a store already holds this effect's
// settings: an effect's UpdateConfig reads it with default 0, and on 0 writes
// "!" = 1 followed by all of its settings (after BeginWriting).
//
// Threading: a store belongs to one effect and is used under that effect's
// lock only.
#pragma once

#include <cstdint>
#include <string>

namespace orrery {

class ConfigStore {
 public:
  // Starts a fresh block of values; later sets append to it.
  virtual void BeginWriting() = 0;

  virtual int32_t GetInt(const char* key, int32_t def) = 0;
  virtual int32_t SetInt(const char* key, int32_t value) = 0;
  virtual float GetFloat(const char* key, float def) = 0;
  virtual int32_t SetFloat(const char* key, float value) = 0;
  // The returned pointer is the store's and stays valid until the next
  // GetString on the same store; it is `def` itself when the key is missing.
  virtual const char* GetString(const char* key, const char* def) = 0;
  virtual int32_t SetString(const char* key, const char* value) = 0;
  // `used_default` (may be null) tells whether the key was missing.
  virtual std::string GetPath(const char* key, const char* def, bool* used_default) = 0;
  virtual int32_t SetPath(const char* key, const char* path) = 0;

 protected:
  ~ConfigStore() = default;
};

}  // namespace orrery
