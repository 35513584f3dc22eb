// An in-process host context for unit tests of effects: the seam between an
// effect and its host, with everything the effect tells the host recorded.
// Its configuration store is the host's real SettingsDocument.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orrery/effect.h"
#include "orrery/services.h"
#include "framework/settings_document.h"
#include "test_screen.h"

namespace nimbo::testing {

class TestHost final : public orrery::HostContext {
 public:
  TestHost(int32_t width = 64, int32_t height = 48) : width_(width), height_(height) {}

  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return &store; }
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {width_, height_, 25.0f}; }
  void Notify(int32_t code, int32_t value) override { notifications.push_back({code, value}); }
  void DeclareSlider(const orrery::SliderDesc& slider) override { sliders.push_back(slider); }
  void PublishDynVars(orrery::DynVar* head) override { dynvars = head; }
  void* GetMemory(int32_t slot, size_t bytes) override;
  void FreeMemory(int32_t slot) override { memory.erase(slot); }
  int64_t GetTimeMs() override { return time_ms; }
  void DescribeSetting(const orrery::SettingInfo& info) override { described.push_back(info); }

  void SetOutputSize(int32_t width, int32_t height) {
    width_ = width;
    height_ = height;
  }
  // The declared dynamic variable `name`, or null.
  orrery::DynVar* FindDynVar(const char* name) const;
  const orrery::SliderDesc* FindSlider(const char* name) const;

  SettingsDocument store;
  std::vector<std::pair<int32_t, int32_t>> notifications;
  std::vector<orrery::SliderDesc> sliders;
  std::vector<orrery::SettingInfo> described;
  orrery::DynVar* dynvars = nullptr;
  std::map<int32_t, std::vector<uint8_t>> memory;
  int64_t time_ms = 0;
  bool refuse_memory = false;  // the memory service has nothing to give
  uint8_t fresh_memory = 0;    // the byte a new or resized buffer is filled with

 private:
  int32_t width_;
  int32_t height_;
};

// Records every message box instead of showing it; installs itself for its
// lifetime.
class MessageCapture final : public orrery::MessageService {
 public:
  MessageCapture() { orrery::SetMessageService(this); }
  ~MessageCapture() { orrery::SetMessageService(nullptr); }
  void ShowMessage(void* owner, const char* caption, const char* text, orrery::MessageIcon icon) override {
    messages.push_back({caption ? caption : "", text ? text : "", icon, owner});
  }
  struct Message {
    std::string caption;
    std::string text;
    orrery::MessageIcon icon;
    void* owner;
  };
  std::vector<Message> messages;
};

// Answers each round of a modal dialog through `answer(round, model)`,
// which edits the fields by label and returns the button (1 = OK); keeps
// each round's title and top label. Installs itself for its lifetime.
class DialogRounds final : public orrery::DialogService {
 public:
  using Answer = std::function<int32_t(int32_t round, const orrery::DialogModel&)>;
  explicit DialogRounds(Answer answer) : answer_(std::move(answer)) { orrery::SetDialogService(this); }
  ~DialogRounds() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    titles.push_back(model.title ? model.title : "");
    tops.push_back(model.count > 0 && model.fields[0].label ? model.fields[0].label : "");
    return answer_(Rounds() - 1, model);
  }
  int32_t Rounds() const { return int32_t(titles.size()); }

  // The value of the field labelled `label`, as a T; a test failure (and a
  // scratch value) when the round has no such field.
  template <class T>
  static T& Field(const orrery::DialogModel& model, const std::string& label) {
    for (int32_t k = 0; k < model.count; ++k)
      if (model.fields[k].label && label == model.fields[k].label && model.fields[k].value)
        return *static_cast<T*>(model.fields[k].value);
    ADD_FAILURE() << "no field " << label << " in " << (model.title ? model.title : "");
    static T scratch{};
    return scratch;
  }
  static std::string& Text(const orrery::DialogModel& m, const std::string& label) {
    return Field<std::string>(m, label);
  }
  static int32_t& Int(const orrery::DialogModel& m, const std::string& label) { return Field<int32_t>(m, label); }

  std::vector<std::string> titles, tops;

 private:
  Answer answer_;
};

// The package's effect named `name` (its short name, as `nimbo list` shows
// it: "ChromaKeyPRO", "Blob 3D"), with `host` as its host context; null when
// the package has no such effect.
std::unique_ptr<orrery::Effect> MakeEffect(const char* name, TestHost* host);
// The registry index of the effect named `name`, or -1.
int32_t EffectIndex(const char* name);

// Runs Render with `inputs` into `out` and returns its result.
int32_t RenderOnce(orrery::Effect& effect, std::vector<const orrery::Screen*> inputs, orrery::Screen* out);

}  // namespace nimbo::testing
