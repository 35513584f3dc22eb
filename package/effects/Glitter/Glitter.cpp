// Glitter: bright parts of the picture sparkle. The frame is divided into
// square cells; in each cell the brightest pixel (the first one in reading
// order on ties) whose luma exceeds the threshold may carry a white star
// glint (glitter_kernel.h). Each cell has a fixed chance to be a sparkling
// one ("density") and its own twinkle phase, which advances every frame, so
// the stars grow and fade out of step with each other.
//
// Randomness comes from the package's seedable 15-bit generator, drawn when
// the cells are laid out (per cell in reading order: its chance, then its
// phase), so a seeded run is reproducible.
//
// Settings: "threshold" (luma 0..255), "size" (longest arm, pixels),
// "spacing" (cell side, pixels), "density" (0..1), "speed" (phase step per
// frame, of 256). Dynamic variables "Threshold" and "Glint size" start at the
// stored values.
#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/platform.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "glitter_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\Glitter",
                                      kAuthor,
                                      "Effect,Filter,",
                                      0x016425FDE5C6C140ull,
                                      orrery::kEffectVersion};

// ---- settings -----------------------------------------------------------------------

constexpr int32_t kMaxSize = 64;

struct GlitterSettings {
  int32_t threshold;
  int32_t size;
  int32_t spacing;
  float density;
  int32_t speed;
};
constexpr SettingRow<GlitterSettings> kRows[] = {
    {"threshold", &GlitterSettings::threshold, 220, nullptr, 0, 255, "Brightness threshold"},
    {"size", &GlitterSettings::size, 6, nullptr, 0, kMaxSize, "Glint size (pixels)"},
    {"spacing", &GlitterSettings::spacing, 12, nullptr, 2, 256, "Glint spacing (pixels)"},
    {"density", &GlitterSettings::density, 0.5, nullptr, 0, 1, "Share of cells that sparkle"},
    {"speed", &GlitterSettings::speed, 16, nullptr, 0, 255, "Twinkle speed"},
};

int32_t Whole(float v, int32_t lo, int32_t hi) {
  if (!(v >= float(lo))) return lo;
  return v >= float(hi) ? hi : int32_t(v);
}

// ---- the effect -------------------------------------------------------------------------

class CGlitterDfx final : public CEffectBase {
 public:
  CGlitterDfx()
      : CEffectBase(kInfo, kLabelGlitter, "helpfile/Effects/Filter/Glitter/Glitter.htm", sizeof(CGlitterDfx)) {
    ApplyDefaults<GlitterSettings>(kRows, settings_);
    Declare();
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!CopyInputToOutput(inputs, output)) return 0;
    const orrery::Screen* in = inputs.Get(0);
    const int32_t w = in->width, h = in->height;
    if (w <= 0 || h <= 0) return 1;
    const int32_t spacing = std::clamp(settings_.spacing, 2, 256);
    if (!LayOut(w, h, spacing)) return 1;
    const int32_t threshold = Whole(*threshold_, 0, 255);
    const int32_t length = Whole(*size_, 0, kMaxSize);

    // Brightest pixel per cell, one band of cells at a time, from the input
    // (the output is drawn on afterwards, so glints never feed back).
    const glitter::LumaRowFn luma = glitter::LumaRowKernel();
    glints_.clear();
    for (int32_t cy = 0; cy < cells_h_; ++cy) {
      std::fill(best_.begin(), best_.end(), Best{-1, 0, 0});
      for (int32_t y = cy * spacing; y < std::min(h, (cy + 1) * spacing); ++y) {
        luma(in->pixels + size_t(y) * size_t(w), luma_row_.data(), w);
        for (int32_t cx = 0; cx < cells_w_; ++cx) {
          Best& b = best_[size_t(cx)];
          const int32_t x_end = std::min(w, (cx + 1) * spacing);
          for (int32_t x = cx * spacing; x < x_end; ++x) {
            if (luma_row_[size_t(x)] > b.luma) b = {luma_row_[size_t(x)], x, y};
          }
        }
      }
      for (int32_t cx = 0; cx < cells_w_; ++cx) {
        const size_t cell = size_t(cy) * size_t(cells_w_) + size_t(cx);
        const Best& b = best_[size_t(cx)];
        if (b.luma > threshold && active_[cell]) glints_.push_back({b.x, b.y, uint32_t(cell)});
      }
    }
    for (const Glint& g : glints_) {
      const int32_t amplitude = glitter::GlintAmplitude(phase_[g.cell]);
      glitter::DrawGlint(output->pixels, w, h, g.x, g.y, amplitude, length * amplitude / 255);
    }
    const uint8_t step = uint8_t(std::clamp(settings_.speed, 0, 255));
    for (uint8_t& p : phase_) p = uint8_t(p + step);
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<GlitterSettings>(store, kRows, settings_);
    cells_w_ = 0;  // lay the cells out again with the new spacing and density
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<GlitterSettings>(store, kRows, settings_); }
  void DeclareHostControls() override {
    Declare();
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
    DescribeRows<GlitterSettings>(host_context_, kRows);
  }

  int32_t RunDialog() override {
    return RunSettingsDialog<GlitterSettings>("Glitter", HelpPage(), kRows, settings_, lock_, [this] {
      cells_w_ = 0;
      Declare();
    });
  }

 private:
  struct Best {
    int32_t luma, x, y;
  };
  struct Glint {
    int32_t x, y;
    uint32_t cell;
  };

  // Cells and their random chance and phase, laid out again when the frame
  // size, spacing or density changes. False when memory is short.
  bool LayOut(int32_t w, int32_t h, int32_t spacing) {
    const int32_t cw = (w + spacing - 1) / spacing, ch = (h + spacing - 1) / spacing;
    if (cw == cells_w_ && ch == cells_h_ && w == frame_w_ && spacing == spacing_) return true;
    const float density = std::isnan(settings_.density) ? 0.0f : std::clamp(settings_.density, 0.0f, 1.0f);
    const int32_t chance = int32_t(density * 32768.0f);
    try {
      active_.assign(size_t(cw) * size_t(ch), 0);
      phase_.assign(active_.size(), 0);
      best_.assign(size_t(cw), Best{-1, 0, 0});
      luma_row_.assign(size_t(w), 0);
      glints_.reserve(active_.size());
    } catch (const std::bad_alloc&) {
      cells_w_ = 0;
      return false;
    }
    for (size_t i = 0; i < active_.size(); ++i) {
      active_[i] = platform::Rand() < chance ? 1 : 0;
      phase_[i] = uint8_t(platform::Rand() & 0xFF);
    }
    cells_w_ = cw;
    cells_h_ = ch;
    frame_w_ = w;
    spacing_ = spacing;
    mem_size_ = int32_t(sizeof(CGlitterDfx) + active_.size() * (2 + sizeof(Glint)) + size_t(w) * (1 + sizeof(Best)));
    return true;
  }

  void Declare() {
    dynvars_.Clear();
    threshold_ = dynvars_.DeclareFloat("Threshold", 0.0f, 255.0f, float(settings_.threshold), 0.0f, 255.0f, 0);
    size_ = dynvars_.DeclareFloat("Glint size", 0.0f, float(kMaxSize), float(settings_.size), 0.0f, float(kMaxSize), 0);
  }

  GlitterSettings settings_{};
  DynVarList dynvars_;
  float* threshold_ = nullptr;
  float* size_ = nullptr;
  // Cells, laid out for one frame size.
  int32_t cells_w_ = 0, cells_h_ = 0, frame_w_ = 0, spacing_ = 0;
  std::vector<uint8_t> active_;
  std::vector<uint8_t> phase_;
  std::vector<Best> best_;
  std::vector<uint8_t> luma_row_;
  std::vector<Glint> glints_;
};

}  // namespace

orrery::Effect* NewGlitter() { return CreateEffect<CGlitterDfx>(); }

}  // namespace nimbo
