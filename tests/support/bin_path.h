// Points the settings manager's bin path (where the engine library is
// looked for) at a test's folder for the lifetime of the object.
#pragma once

#include <string>

#include "orrery/services.h"

namespace nimbo::testing {

class BinPathOverride final : public orrery::CSettingsManager {
 public:
  explicit BinPathOverride(std::string bin) : bin_(std::move(bin)) { orrery::SetSettingsManager(this); }
  ~BinPathOverride() { orrery::SetSettingsManager(nullptr); }
  BinPathOverride(const BinPathOverride&) = delete;
  BinPathOverride& operator=(const BinPathOverride&) = delete;

  std::string GetPluginsPath() override { return "."; }
  std::string GetBinPath() override { return bin_; }
  std::string GetRecentPath() override { return recent_; }
  void SetRecentPath(const std::string& path) override { recent_ = path; }

 private:
  std::string bin_;
  std::string recent_;
};

}  // namespace nimbo::testing
