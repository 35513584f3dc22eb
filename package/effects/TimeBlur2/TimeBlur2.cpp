// TimeBlur2: blurs the picture over time. Each output frame is the sum of the
// last n input frames shifted down by s, the smallest power of two 2^s >= n
// (deliberately not divided by n: n = 3 comes out three quarters as bright).
//
// A ring of the last n frames and a running sum of 16 bits per byte keep the
// cost per frame independent of n: add the new frame, subtract the frame that
// leaves the ring, shift. Ring and sum come from the host's memory service on
// every frame, so they follow changes of resolution.
//
// Up to 16 frames, the sums are kept packed, 6 bytes a pixel instead of 8
// (time_blur_kernel.h): the same numbers for less memory traffic.
//
// A reset frees ring and sum and makes the next frame a reset frame: the ring
// filled with that frame, the sum n times it, the output the input itself. It
// happens when the configuration is loaded, when the dialog is cancelled or
// changes n, and on the host button "Reset buffers", so the history never
// mixes frames of different settings.
//
// Settings: "n_screens" (int, frames averaged, 1..32, default 8; the dialog
// offers the powers of two).
#include <algorithm>
#include <cstring>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "orrery/services.h"
#include "time_blur_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\TimeBlur2",
                                      kAuthor,
                                      "Effect,Filter,Time,Blur,",
                                      0x0169BDBC6AB2405Cull,
                                      orrery::kEffectVersion};

// The host's parameters of the reset button.
constexpr SliderParams kResetButtonParams{100.0f, 10000.0f, 857.2f, 25};

// ---- settings ----
struct TimeBlurSettings {
  int32_t n_screens;
};

// The dialog offers the powers of two as a choice of its own (entry k stands
// for n = 2^k), so the stored count itself is not one of its fields.
constexpr SettingRow<TimeBlurSettings> kRows[] = {
    {"n_screens",
     &TimeBlurSettings::n_screens,
     8,
     nullptr,
     1,
     kTimeBlurMaxFrames,
     "number of frames averaged",
     nullptr,
     false,
     {ShowAs::kHidden}},
};

// Memory slots: the sum, then one per ring frame.
constexpr int32_t kSumSlot = 0;
constexpr int32_t kFirstRingSlot = 1;

// The dialog's list: entry k stands for n = 2^k.
constexpr const char* kFrameChoices = "1|2|4|8|16|32";
constexpr int32_t kLastChoice = 5;

class CTimeBlur2Dfx final : public CEffectBase {
 public:
  CTimeBlur2Dfx()
      : CEffectBase(kInfo, kLabelTimeBlur2, "helpfile/Effects/Filter/TimeBlur2/TimeBlur2.htm", sizeof(CTimeBlur2Dfx)) {
    ApplyDefaults<TimeBlurSettings>(kRows, settings_);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    const orrery::Screen* in = InputMatchingOutput(inputs, output);
    if (!in || !host_context_) return 0;
    const size_t count = in->PixelCount();
    const int32_t n = Frames();

    auto* sum = static_cast<uint16_t*>(host_context_->GetMemory(kSumSlot, count * 8));
    uint32_t* ring[kTimeBlurMaxFrames] = {};
    for (int32_t i = 0; i < n; ++i) {
      ring[i] = static_cast<uint32_t*>(host_context_->GetMemory(kFirstRingSlot + i, count * 4));
      if (!ring[i]) return 0;
    }
    if (!sum) return 0;

    // The button is an int to the effect: it counts when it goes 0 -> 1.
    const int32_t button = reset_button_ >= 1.0f ? 1 : 0;
    if (button == 1 && last_button_ == 0) reset_requested_ = true;
    last_button_ = button;

    if (reset_requested_) {
      packed_ = CanPack();
      if (packed_) {
        TimeBlurFillPackedSum(in->pixels, reinterpret_cast<uint8_t*>(sum), count, n);
      } else {
        TimeBlurFillSum(in->pixels, sum, count, n);
      }
      sums_count_ = count;
      for (int32_t i = 0; i < n; ++i) std::memcpy(ring[i], in->pixels, count * 4);
      if (output->pixels != in->pixels) std::memcpy(output->pixels, in->pixels, count * 4);
      // The next frame replaces slot 1, not slot 0; with every slot holding
      // the same frame that is equivalent. A ring of one has only slot 0.
      index_ = 1 % n;
      reset_requested_ = false;
      return 1;
    }
    if (count != sums_count_) {
      // The host handed buffers of a new size, with its own contents: they
      // are plain sums. Zeros read the same in both forms, and a history of
      // zeros can only produce sums the packed form holds.
      packed_ = CanPack() && AllZero(sum, count * 8) &&
                std::all_of(ring, ring + n, [count](const uint32_t* r) { return AllZero(r, count * 4); });
      sums_count_ = count;
    }
    if (index_ >= n) index_ = 0;
    if (packed_) {
      TimeBlurPackedStepKernel()(in->pixels, output->pixels, ring[index_], reinterpret_cast<uint8_t*>(sum), count,
                                 {shift_});
    } else {
      TimeBlurStepKernel()(in->pixels, output->pixels, ring[index_], sum, count, {shift_});
    }
    index_ = (index_ + 1) % n;
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<TimeBlurSettings>(store, kRows, settings_);
    settings_.n_screens = std::clamp(settings_.n_screens, 1, kTimeBlurMaxFrames);
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<TimeBlurSettings>(store, kRows, settings_); }

  // Runs after every configuration exchange: a load is a reset.
  void DeclareHostControls() override {
    DescribeRows<TimeBlurSettings>(host_context_, kRows);
    DeclareSlider("Reset buffers", &reset_button_, 0.0f, 1.0f, kResetButtonParams);
    Reset();
  }

  int32_t RunDialog() override {
    int32_t choice = std::min(TimeBlurShift(settings_.n_screens), kLastChoice);
    const orrery::DialogField choice_field[] = {{"frames averaged", orrery::DialogFieldType::kChoice, &choice, 0,
                                                 kLastChoice, kFrameChoices, "more frames: a longer trail"}};
    TimeBlurSettings edit = settings_;
    SettingsDialog<TimeBlurSettings> dialog(kRows, edit, choice_field);
    const bool ok = dialog.Run("TimeBlur2", HelpPage());
    std::lock_guard lock(lock_);
    if (!ok) {
      Reset();  // the saved settings are back: start a clean history
      return 0;
    }
    const int32_t n = 1 << std::clamp(choice, 0, kLastChoice);
    if (n != settings_.n_screens) {
      settings_.n_screens = n;
      Reset();
    }
    return 1;
  }

 private:
  int32_t Frames() {
    settings_.n_screens = std::clamp(settings_.n_screens, 1, kTimeBlurMaxFrames);
    shift_ = TimeBlurShift(settings_.n_screens);
    return settings_.n_screens;
  }

  // The packed sums (see time_blur_kernel.h) take a quarter off the sum's
  // memory traffic; they hold sums of up to 16 frames and need the SIMD step.
  bool CanPack() const { return shift_ <= kTimeBlurPackedMaxShift && TimeBlurPackedStepKernel() != nullptr; }

  static bool AllZero(const void* data, size_t bytes) {
    const auto* p = static_cast<const uint8_t*>(data);
    return std::all_of(p, p + bytes, [](uint8_t b) { return b == 0; });
  }

  void Reset() {
    if (host_context_) {
      host_context_->FreeMemory(kSumSlot);
      for (int32_t i = 0; i < kTimeBlurMaxFrames; ++i) host_context_->FreeMemory(kFirstRingSlot + i);
    }
    index_ = 0;
    reset_requested_ = true;
  }

  TimeBlurSettings settings_{};
  int32_t shift_ = 3;
  float reset_button_ = 0.0f;  // written by the host's button
  int32_t last_button_ = 0;
  int32_t index_ = 0;      // ring slot of the oldest frame
  bool packed_ = false;    // the sum buffer holds packed sums
  size_t sums_count_ = 0;  // pixels the sum buffer was last filled or checked for
  bool reset_requested_ = true;
};

}  // namespace

orrery::Effect* NewTimeBlur2() { return CreateEffect<CTimeBlur2Dfx>(); }

}  // namespace nimbo
