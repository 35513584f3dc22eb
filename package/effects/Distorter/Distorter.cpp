// Distorter: warps the input by line-pair field morphing.
//
// The user draws line pairs (a destination line and a source line); every
// output pixel is taken from where the pairs map it in the input. Several
// line sets ("morphs") form a sequence, and the host slider "Sequence mixing
// progress" (-1..1) walks through it: the picture moves from the current
// morph to the next with ease-in and ease-out, and each crossing of +-0.9
// advances the sequence and flips the direction, so a value swinging between
// -1 and 1 keeps walking forward.
//
// Cold: one coordinate map per morph (distorter_map.h), built only when the
// morph set, the pair of morphs being mixed or a size changes. Hot: each
// frame blends the two maps' positions and samples the input, nearest or
// bilinear (distorter_sample.h, which states the fixed point). Sampling
// needs no preparation before or after: the map build moves any position at
// or past the last column (row) to 1/8 pixel before it, so a bilinear
// sample's right and lower neighbours are inside the input as the host gave
// it, and screens and maps share their orientation, so the result goes
// straight into the output. (Only a host passing the same buffer as input
// and output costs a copy of the input.) The price of that edge rule: a
// morph without lines shows its input exactly except the last column and
// row, which show the pixel before (nearest) or 1/8 of it plus 7/8 of the
// last (bilinear).
//
// Settings: "use_filtering" (bilinear), the morphs ("n_morphs", then per
// morph its name, ease from/to 0..1 and line pairs in map-grid pixels), and
// "input_res" with "input_w" x "input_h" (a fixed input resolution instead of
// the output's). A frame whose input size does not fit is left as the host
// gave it; so is one with no morphs or an input larger than 4096 a side.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "distorter_editing.h"
#include "distorter_map.h"
#include "distorter_sample.h"

namespace nimbo {
namespace {

using distorter::LinePair;
using distorter::Morph;

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\Distorter",
                                      kAuthor,
                                      "Effect,Filter,",
                                      0x0024E2E1633AF2E7ull,
                                      orrery::kEffectVersion};

// The host's parameters of the sequence-mixing slider.
constexpr SliderParams kMixingSliderParams{100.0f, 20000.0f, 2000.0f, 0};

// ---- settings -----------------------------------------------------------------------

struct DistorterSettings {
  int32_t use_filtering;
  int32_t input_res;
  int32_t input_w;
  int32_t input_h;
};

// The morph keys are written between these two tables, in the stored order.
constexpr SettingRow<DistorterSettings> kLeadRows[] = {
    {"use_filtering", &DistorterSettings::use_filtering, 1, nullptr, 0, 1, "Bilinear filtering"},
};
constexpr SettingRow<DistorterSettings> kTailRows[] = {
    {"input_res", &DistorterSettings::input_res, 0, nullptr, 0, 1, "Fixed input resolution"},
    {"input_w", &DistorterSettings::input_w, 640, nullptr, 1, distorter::kMaxInputSide, "Input width"},
    {"input_h", &DistorterSettings::input_h, 480, nullptr, 1, distorter::kMaxInputSide, "Input height"},
};

constexpr const char* kSliderName = "Sequence mixing progress";

// The morph keys carry the morph's index, the line keys also the pair's:
// "n_morphs" counts the first, each morph's "morph%in_lines" the second.
constexpr orrery::SettingIndex kMorphIndex[] = {{"n_morphs", distorter::kMaxMorphs}};
constexpr orrery::SettingIndex kLineIndex[] = {{"n_morphs", distorter::kMaxMorphs},
                                               {"morph%in_lines", distorter::kMaxLinePairs}};
constexpr orrery::SettingType kFloatKey = orrery::SettingType::kFloat;
// Line coordinates are map-grid pixels, any finite number (a line may reach
// outside the picture).
constexpr orrery::IndexedSettingInfo kMorphKeys[] = {
    {{"morph%iname", orrery::SettingType::kString, 0, 0, "the morph's name"}, 1, kMorphIndex},
    {{"morph%iefrom", kFloatKey, 0, 1, "ease from: how gently the move away from the morph starts"}, 1, kMorphIndex},
    {{"morph%ieto", kFloatKey, 0, 1, "ease to: how gently the move into the morph ends"}, 1, kMorphIndex},
    {{"morph%in_lines", orrery::SettingType::kInt, 0, distorter::kMaxLinePairs, "number of line pairs of the morph"},
     1,
     kMorphIndex},
    {{"morph%iline%i_l1_p1_x", kFloatKey, 0, 0, "x of the destination line's start, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l1_p1_y", kFloatKey, 0, 0, "y of the destination line's start, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l1_p2_x", kFloatKey, 0, 0, "x of the destination line's end, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l1_p2_y", kFloatKey, 0, 0, "y of the destination line's end, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l2_p1_x", kFloatKey, 0, 0, "x of the source line's start, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l2_p1_y", kFloatKey, 0, 0, "y of the source line's start, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l2_p2_x", kFloatKey, 0, 0, "x of the source line's end, map-grid pixels"}, 2, kLineIndex},
    {{"morph%iline%i_l2_p2_y", kFloatKey, 0, 0, "y of the source line's end, map-grid pixels"}, 2, kLineIndex},
};

std::string Key(const char* format, int32_t i, int32_t j = 0) {
  char key[96];
  std::snprintf(key, sizeof key, format, int(i), int(j));
  return key;
}

// The eight coordinates of a pair, in the order they are stored, as key
// suffixes after "morph%iline%i_".
constexpr const char* kLineSuffixes[8] = {"l1_p1_x", "l1_p1_y", "l1_p2_x", "l1_p2_y",
                                          "l2_p1_x", "l2_p1_y", "l2_p2_x", "l2_p2_y"};

// The keys of one pair: "morph%iline%i_" is formatted once and each suffix
// put after it. A large set reads these keys by the million, so they are
// built in place rather than through a format string per key.
class LineKeys {
 public:
  LineKeys(int32_t morph, int32_t line) {
    char* p = std::to_chars(key_ + 5, key_ + 20, morph).ptr;
    std::memcpy(p, "line", 4);
    p = std::to_chars(p + 4, p + 20, line).ptr;
    *p++ = '_';
    suffix_ = p;
  }
  const char* operator[](int k) {
    std::memcpy(suffix_, kLineSuffixes[k], 8);  // with its terminating zero
    return key_;
  }

 private:
  char key_[64] = "morph";
  char* suffix_;
};
float* LineCoordinate(LinePair& pair, int k) {
  distorter::Line& line = k < 4 ? pair.l1 : pair.l2;
  distorter::Point& point = (k & 2) ? line.p2 : line.p1;
  return (k & 1) ? &point.y : &point.x;
}

// ---- the effect -----------------------------------------------------------------------

class CDistorterDfx final : public CEffectBase, public distorter::MorphEditing {
 public:
  CDistorterDfx()
      : CEffectBase(kInfo, kLabelDistorter, "helpfile/Effects/Filter/Distorter/Distorter.htm", sizeof(CDistorterDfx)) {
    ApplyDefaults<DistorterSettings>(kLeadRows, settings_);
    ApplyDefaults<DistorterSettings>(kTailRows, settings_);
  }

  void EditMorphs(const std::function<void(distorter::MorphSet&, int32_t, int32_t)>& edit) override {
    std::lock_guard lock(lock_);
    edit(morphs_, out_w_, out_h_);
    if (sequence_.index >= morphs_.Count()) sequence_.index = 0;
  }

  orrery::Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) override {
    std::lock_guard lock(lock_);
    // A proposal of -1 x -1 asks for the default, whatever the settings.
    if (settings_.input_res && !(width == -1 && height == -1)) return {settings_.input_w, settings_.input_h};
    return CEffectBase::GetInputScreenRes(index, width, height);
  }

  int32_t Initialize() override {
    std::lock_guard lock(lock_);
    FetchOutputSize();
    // Build the maps now, off the frame loop, for the sizes the host has
    // negotiated; Render rebuilds only if the frames turn out otherwise.
    if (out_w_ > 0 && out_h_ > 0 && morphs_.Count() > 0) {
      const int32_t in_w = settings_.input_res ? settings_.input_w : out_w_;
      const int32_t in_h = settings_.input_res ? settings_.input_h : out_h_;
      const int32_t n = morphs_.Count();
      maps_.Prepare(morphs_, sequence_.index, (sequence_.index + 1) % n, out_w_, out_h_, in_w, in_h);
    }
    mem_size_ = int32_t(sizeof(CDistorterDfx) + maps_.Bytes());
    return 1;
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!output || !output->pixels || output->width <= 0 || output->height <= 0) return 0;
    const orrery::Screen* in = inputs.Get(0);
    if (!in || !in->pixels) return 1;
    const int32_t want_w = settings_.input_res ? settings_.input_w : output->width;
    const int32_t want_h = settings_.input_res ? settings_.input_h : output->height;
    if (in->width != want_w || in->height != want_h) return 1;
    const int32_t n = morphs_.Count();
    if (n == 0) return 1;

    const float p = distorter::SequenceStep(sequence_, progress_, n);
    const int32_t index = sequence_.index;
    const int32_t next = (index + 1) % n;
    if (!maps_.Prepare(morphs_, index, next, output->width, output->height, in->width, in->height)) return 1;
    const float q = distorter::Ease(p, morphs_.At(index).ease_from, morphs_.At(next).ease_to);

    distorter::SampleParams params{in->pixels, in->width, in->height, distorter::BlendWeight(q)};
    if (in->pixels == output->pixels) {
      // A host that renders in place: sample from a copy, since every output
      // pixel may read any input pixel. Hosts that hand separate buffers
      // (the usual case) cost no copy at all.
      try {
        source_copy_.assign(in->pixels, in->pixels + in->PixelCount());
      } catch (const std::bad_alloc&) {
        return 1;  // no memory for the copy: the frame is left as it is
      }
      params.src = source_copy_.data();
    }
    // Refuses only sizes Prepare has already refused; the frame is then left.
    distorter::SampleFrame(distorter::ActiveSampleKernels(), maps_.First(), maps_.Second(), output->pixels,
                           output->width, output->height, params, settings_.use_filtering != 0);
    mem_size_ = int32_t(sizeof(CDistorterDfx) + maps_.Bytes() + source_copy_.capacity() * sizeof(uint32_t));
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<DistorterSettings>(store, kLeadRows, settings_);
    ReadMorphs(store);
    ReadRows<DistorterSettings>(store, kTailRows, settings_);
    sequence_.index = 0;
  }

  void WriteSettings(orrery::ConfigStore& store) override {
    WriteRows<DistorterSettings>(store, kLeadRows, settings_);
    store.SetInt("n_morphs", morphs_.Count());
    for (int32_t i = 0; i < morphs_.Count(); ++i) {
      const Morph& morph = morphs_.At(i);
      store.SetString(Key("morph%iname", i).c_str(), morph.name.c_str());
      store.SetFloat(Key("morph%iefrom", i).c_str(), morph.ease_from);
      store.SetFloat(Key("morph%ieto", i).c_str(), morph.ease_to);
      store.SetInt(Key("morph%in_lines", i).c_str(), int32_t(morph.lines.size()));
      for (int32_t j = 0; j < int32_t(morph.lines.size()); ++j) {
        LinePair pair = morph.lines[size_t(j)];
        LineKeys keys(i, j);
        for (int k = 0; k < 8; ++k) store.SetFloat(keys[k], *LineCoordinate(pair, k));
      }
    }
    WriteRows<DistorterSettings>(store, kTailRows, settings_);
  }

  void DeclareHostControls() override {
    // The host's own slider parameters for this control: 100, 20000, 2000.
    DeclareSlider(kSliderName, &progress_, -1.0f, 1.0f, kMixingSliderParams);
    DescribeRows<DistorterSettings>(host_context_, kLeadRows);
    if (host_context_) {
      for (const orrery::IndexedSettingInfo& keys : kMorphKeys) host_context_->DescribeIndexedSetting(keys);
    }
    DescribeRows<DistorterSettings>(host_context_, kTailRows);
  }

  int32_t RunDialog() override {
    DistorterSettings copy;
    int32_t selected;
    Morph morph;
    {
      std::lock_guard lock(lock_);
      copy = settings_;
      selected = morphs_.Count() > 0 ? sequence_.index : -1;
      if (selected >= 0) morph = morphs_.At(selected);
    }
    // The selected morph's name and easing follow the stored settings.
    char label[320] = "";
    std::vector<orrery::DialogField> morph_fields;
    if (selected >= 0) {
      std::snprintf(label, sizeof label, "Selected %i: %s", int(selected), morph.name.c_str());
      morph_fields = {{label, orrery::DialogFieldType::kLabel, nullptr, 0, 0, nullptr, nullptr},
                      {"Name", orrery::DialogFieldType::kText, &morph.name, 0, 0, nullptr, nullptr},
                      {"Ease from", orrery::DialogFieldType::kFloat, &morph.ease_from, 0, 1, nullptr, nullptr},
                      {"Ease to", orrery::DialogFieldType::kFloat, &morph.ease_to, 0, 1, nullptr, nullptr}};
    }
    SettingsDialog<DistorterSettings> dialog({kLeadRows, kTailRows}, copy, {}, morph_fields);
    if (!dialog.Run("Distorter", HelpPage())) return 0;

    std::lock_guard lock(lock_);
    settings_ = copy;
    if (selected >= 0 && selected < morphs_.Count()) {
      const Morph& now = morphs_.At(selected);
      if (now.name != morph.name || now.ease_from != morph.ease_from || now.ease_to != morph.ease_to) {
        Morph& edited = morphs_.Edit(selected);
        edited.name = morph.name;
        edited.ease_from = morph.ease_from;
        edited.ease_to = morph.ease_to;
      }
    }
    return 1;
  }

 private:
  void ReadMorphs(orrery::ConfigStore& store) {
    const int32_t current = morphs_.Count();
    int32_t n = store.GetInt("n_morphs", current);
    n = n < 0 ? 0 : (n > distorter::kMaxMorphs ? distorter::kMaxMorphs : n);
    std::vector<Morph> morphs(static_cast<size_t>(n));
    for (int32_t i = 0; i < n; ++i) {
      Morph& morph = morphs[size_t(i)];
      if (i < current) {
        morph = morphs_.At(i);
      } else {
        morph.name = Key("New %i", i);
      }
      const std::string name_key = Key("morph%iname", i);
      const char* name = store.GetString(name_key.c_str(), nullptr);
      if (name) morph.name = name;
      morph.ease_from = store.GetFloat(Key("morph%iefrom", i).c_str(), morph.ease_from);
      morph.ease_to = store.GetFloat(Key("morph%ieto", i).c_str(), morph.ease_to);
      int32_t lines = store.GetInt(Key("morph%in_lines", i).c_str(), int32_t(morph.lines.size()));
      lines = lines < 0 ? 0 : (lines > distorter::kMaxLinePairs ? distorter::kMaxLinePairs : lines);
      morph.lines.resize(size_t(lines));
      for (int32_t j = 0; j < lines; ++j) {
        LinePair& pair = morph.lines[size_t(j)];
        LineKeys keys(i, j);
        for (int k = 0; k < 8; ++k) {
          float* value = LineCoordinate(pair, k);
          *value = store.GetFloat(keys[k], *value);
        }
      }
    }
    morphs_.Assign(std::move(morphs));
  }

  DistorterSettings settings_{};
  distorter::MorphSet morphs_;
  float progress_ = 0.0f;  // the host slider writes here
  distorter::SequenceState sequence_;
  distorter::MorphMapCache maps_;
  std::vector<uint32_t> source_copy_;  // the input, only for a host rendering in place
};

}  // namespace

namespace distorter {
MorphEditing* AsMorphEditing(orrery::Effect* effect) { return dynamic_cast<CDistorterDfx*>(effect); }
}  // namespace distorter

orrery::Effect* NewDistorter() { return CreateEffect<CDistorterDfx>(); }

}  // namespace nimbo
