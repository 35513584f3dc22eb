// The frei0r plug-ins through their C interface (dlopen, as a host does),
// against the host runtime that `nimbo render` uses.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bridge_catalog.h"
#include "bridge_clock.h"
#include "bridge_params.h"
#include "media/frame_scaler.h"
#include "orrery/services.h"
#include "plugin_handle.h"
#include "runtime/effect_stage.h"
#include "runtime/settings_edit.h"

namespace nimbo::frei0r {
namespace {

constexpr uint32_t kCanary = 0xDEADBEEFu;

struct PluginCase {
  const char* effect;
  Layout layout;
};

const PluginCase kPlugins[] = {
    {"ReScaler", Layout::kFilter},      {"LoPass", Layout::kFilter},        {"TimeBlur2", Layout::kFilter},
    {"Fast h-Blur", Layout::kFilter},   {"RGB Displacer", Layout::kFilter}, {"ColorReducer", Layout::kFilter},
    {"Glitter", Layout::kFilter},       {"Retina Killer", Layout::kFilter}, {"ChromaKeyPRO", Layout::kMixer},
    {"ChromaKeyPRO", Layout::kStacked}, {"XtractAlpha", Layout::kFilter},   {"ColorTrafo", Layout::kFilter},
    {"ColorTracker", Layout::kFilter},  {"Distorter", Layout::kFilter},     {"LowQ", Layout::kFilter},
};

const host::Package& Package() {
  static const host::Package* package = [] {
    std::string error;
    setenv("NIMBO_PLUGINS_PATH", NIMBO_PLUGINS_DIR, 1);
    const host::Package* p = SharedPackage(nullptr, &error);
    if (!p) ADD_FAILURE() << error;
    return p;
  }();
  return *package;
}

PluginHandle Open(const PluginCase& c) {
  PluginHandle plugin;
  std::string error;
  EXPECT_TRUE(plugin.Open(PluginFileName(c.effect, c.layout), &error)) << error;
  return plugin;
}

// A picture that moves from frame to frame, with a coloured block a keyer or
// tracker finds, and alpha that is not all 255.
std::vector<uint32_t> TestFrame(int32_t w, int32_t h, int64_t frame) {
  std::vector<uint32_t> pixels(size_t(w) * size_t(h));
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      uint32_t r = uint32_t(x * 255 / w + frame * 13) & 0xFF, g = uint32_t(y * 255 / h) & 0xFF,
               b = uint32_t((x ^ y) * 7 + frame * 5) & 0xFF;
      const bool block = x >= w / 4 + frame && x < w / 2 + frame && y >= h / 4 && y < h / 2;
      if (block) r = 230, g = 30, b = 30;
      pixels[size_t(y) * size_t(w) + size_t(x)] = (uint32_t(200 + (x & 3)) << 24) | (r << 16) | (g << 8) | b;
    }
  }
  return pixels;
}

// Frames rendered by the host runtime directly, the way `nimbo render` runs
// the effect at 25 frames a second; a fresh effect whose first frame is
// `first` (its input TestFrame(first), its clock first * 40 ms).
std::vector<std::vector<uint32_t>> RuntimeFrames(const std::string& effect, const std::vector<std::string>& sets,
                                                 int32_t w, int32_t h, int frames, int64_t first = 0) {
  const host::Package& package = Package();
  host::EffectStage stage(package, package.Find(effect), w, h, 25.0);
  host::StageOptions options;
  options.sets = sets;
  stage.Configure(options);
  std::vector<std::vector<uint32_t>> out;
  for (int64_t k = first; k < first + frames; ++k) {
    std::vector<host::FrameBuffer> inputs(size_t(stage.InputCount()));
    std::vector<const host::FrameBuffer*> list;
    for (int32_t i = 0; i < stage.InputCount(); ++i) {
      host::FrameBuffer& b = inputs[size_t(i)];
      b.Reset(w, h);
      const std::vector<uint32_t> pixels = TestFrame(w, h, k + 7 * i);
      std::copy(pixels.begin(), pixels.end(), b.pixels.begin());
      list.push_back(&b);
    }
    stage.RenderFrame(k, list);
    out.emplace_back(stage.Output().pixels.begin(), stage.Output().pixels.end());
  }
  return out;
}

// Sets parameter `name` to a number (bool/double) through the C interface.
void SetNumber(const PluginHandle& p, f0r_instance_t instance, const std::string& name, double value) {
  const int index = p.FindParam(name);
  ASSERT_GE(index, 0) << "no parameter " << name;
  p.set_param(instance, &value, index);
}

std::vector<uint32_t> Update(const PluginHandle& p, f0r_instance_t instance, int32_t w, int32_t h, double time,
                             int64_t frame) {
  const std::vector<uint32_t> first = TestFrame(w, h, frame);
  const std::vector<uint32_t> second = TestFrame(w, h, frame + 7);
  std::vector<uint32_t> out(first.size(), kCanary);
  if (p.info.plugin_type == F0R_PLUGIN_TYPE_MIXER2) p.update2(instance, time, first.data(), second.data(), nullptr, out.data());
  else p.update(instance, time, first.data(), out.data());
  return out;
}

TEST(Frei0rPlugins, DescribeEachImageEffectWithItsSettingsVariablesAndSliders) {
  for (const PluginCase& c : kPlugins) {
    SCOPED_TRACE(PluginFileName(c.effect, c.layout));
    PluginHandle p = Open(c);
    ASSERT_NE(p.library, nullptr);
    EXPECT_EQ(p.info.color_model, F0R_COLOR_MODEL_BGRA8888);
    EXPECT_EQ(p.info.plugin_type, c.layout == Layout::kMixer ? F0R_PLUGIN_TYPE_MIXER2 : F0R_PLUGIN_TYPE_FILTER);
    EXPECT_EQ(p.info.frei0r_version, FREI0R_MAJOR_VERSION);
    EXPECT_EQ(std::string(p.info.name), PluginName(c.effect, c.layout));

    std::set<std::string> names, gstreamer_names;
    for (int i = 0; i < p.info.num_params; ++i) {
      const f0r_param_info_t info = p.Param(i);
      const std::string name = info.name;
      EXPECT_TRUE(names.insert(name).second) << "twice: " << name;
      std::string gstreamer_name = name;  // GStreamer's property name
      for (char& ch : gstreamer_name) ch = std::isalnum(static_cast<unsigned char>(ch)) || ch == '+' ? ch : '-';
      EXPECT_TRUE(gstreamer_names.insert(gstreamer_name).second) << "twice in GStreamer: " << gstreamer_name;
      EXPECT_EQ(name, LowerName(name));
      EXPECT_TRUE(info.explanation && *info.explanation) << name;
    }
    // What a fresh effect reports to its host: every described key, variable
    // and slider is a parameter.
    const host::Package& package = Package();
    host::EffectStage stage(package, package.Find(c.effect), 64, 48, 25.0);
    stage.Configure({});
    for (const host::SettingRecord& s : stage.Host().DescribedSettings()) EXPECT_TRUE(names.count(LowerName(s.key))) << s.key;
    // A variable named like a setting carries its kind in its name.
    auto listed = [&](const std::string& name, const char* kind) {
      return names.count(LowerName(name) + kind) + names.count(LowerName(name)) > 0;
    };
    for (orrery::DynVar* v : stage.Host().DeclaredDynVars()) EXPECT_TRUE(listed(v->name, " variable")) << v->name;
    for (const host::SliderRecord& s : stage.Host().Sliders()) EXPECT_TRUE(listed(s.name, " slider")) << s.name;
    EXPECT_TRUE(names.count("preset"));
    EXPECT_EQ(names.count("values file"), std::string(c.effect) == "ColorTracker" ? 1u : 0u);
  }
  // Each setting's default, mapped to 0..1 and back, is the text a fresh
  // effect stores: a host that sets every parameter to what it reads back
  // (ffmpeg does) changes nothing.
  for (const PluginCase& c : kPlugins) {
    const EffectDescription d = DescribeEffect(Package(), c.effect);
    host::EffectStage stage(Package(), *d.entry, 64, 48, 25.0);
    stage.ApplySettings({});
    for (const host::SettingEntry& stored : host::ReadSettingEntries(stage.Host().Store().Text())) {
      for (const ParamDesc& param : d.params) {
        if (param.source == ParamSource::kSetting && param.target == stored.key) {
          EXPECT_EQ(SettingAssignment(param, DefaultValue(param)), stored.key + "=" + stored.value) << c.effect;
        }
      }
    }
  }
  // ChromaKeyPRO's key variables exist only with "use_dynvars" on, and are
  // parameters all the same.
  PluginHandle keyer = Open({"ChromaKeyPRO", Layout::kMixer});
  EXPECT_GE(keyer.FindParam("keycolor"), 0);
}

TEST(Frei0rPlugins, RenderWhatTheHostRuntimeRendersInSecondsAndMilliseconds) {
  struct Case {
    const char* effect;
    std::vector<std::pair<std::string, double>> params;  // frei0r values
    std::vector<std::string> sets;                       // the same as --set
  };
  const std::vector<Case> cases = {
      {"Retina Killer", {}, {}},
      {"TimeBlur2", {}, {}},
      {"ColorReducer", {{"bits", 0.5}}, {"bits=5"}},  // 1 + 0.5 * 7 = 4.5, rounded
      // LowQ and Glitter draw from the package's process-wide generator, which
      // this process shares between runs: the client tests compare them, one
      // process per run.
      {"ColorTracker", {}, {}},
      {"Distorter", {}, {}},
  };
  const int32_t w = 40, h = 24;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.effect);
    PluginHandle p = Open({c.effect, Layout::kFilter});
    const auto expected = RuntimeFrames(c.effect, c.sets, w, h, 4);
    for (double unit : {1.0, 1000.0}) {  // MLT and GStreamer pass seconds, ffmpeg milliseconds
      f0r_instance_t instance = p.construct(w, h);
      for (const auto& [name, value] : c.params) SetNumber(p, instance, name, value);
      for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(Update(p, instance, w, h, k * 0.04 * unit, k), expected[size_t(k)]) << "frame " << k << " unit " << unit;
      }
      p.destruct(instance);
    }
  }
}

TEST(Frei0rPlugins, AnInputAtAnotherSizeIsScaledFromTheHostsFrameWhereverItLies) {
  // ReScaler asks for a 24 x 20 input: nimbo render's decoder delivers that
  // size, the bridge scales the host's frame to it, reading it in place. A
  // frame one word off a 16-byte boundary gives the same picture.
  const int32_t w = 40, h = 24, in_w = 24, in_h = 20;
  const host::Package& package = Package();
  host::EffectStage stage(package, package.Find("ReScaler"), w, h, 25.0);
  host::StageOptions options;
  options.sets = {"in_w=24", "in_h=20"};
  stage.Configure(options);
  ASSERT_EQ(stage.InputSize(0).width, in_w);
  ASSERT_EQ(stage.InputSize(0).height, in_h);

  PluginHandle p = Open({"ReScaler", Layout::kFilter});
  f0r_instance_t aligned = p.construct(w, h), shifted = p.construct(w, h);
  for (f0r_instance_t instance : {aligned, shifted}) {
    SetNumber(p, instance, "in_w", in_w / 1024.0);
    SetNumber(p, instance, "in_h", in_h / 1024.0);
  }
  for (int k = 0; k < 3; ++k) {
    const std::vector<uint32_t> pixels = TestFrame(w, h, k);
    host::FrameBuffer frame(w, h), scaled;
    std::copy(pixels.begin(), pixels.end(), frame.pixels.begin());
    host::FrameScaler().Scale(frame, scaled, in_w, in_h);
    stage.RenderFrame(k, {&scaled});
    const std::vector<uint32_t> expected(stage.Output().pixels.begin(), stage.Output().pixels.end());
    EXPECT_GT(std::set<uint32_t>(expected.begin(), expected.end()).size(), 1u) << "ReScaler drew nothing";

    EXPECT_EQ(Update(p, aligned, w, h, k * 0.04, k), expected) << "frame " << k;
    host::FrameBuffer host_frame(w * h + 4, 1);
    uint32_t* odd = host_frame.pixels.data() + 1;
    std::copy(pixels.begin(), pixels.end(), odd);
    std::vector<uint32_t> out(pixels.size(), kCanary);
    p.update(shifted, k * 0.04, odd, out.data());
    EXPECT_EQ(out, expected) << "frame " << k << " from an unaligned frame";
  }
  p.destruct(aligned);
  p.destruct(shifted);
}

TEST(Frei0rPlugins, SettingParametersMapOntoTheSettingsRange) {
  // ColorReducer's "bits" and Retina Killer's settings: 0..1 spread over the
  // setting's range, ints rounded; the frame equals the runtime's with --set.
  PluginHandle p = Open({"ChromaKeyPRO", Layout::kMixer});
  const int32_t w = 32, h = 16;
  f0r_instance_t instance = p.construct(w, h);
  SetNumber(p, instance, "angle", 30.0 / 90.0);
  SetNumber(p, instance, "outmode", 1.0);
  const float key[3] = {230 / 255.0f, 30 / 255.0f, 30 / 255.0f};
  p.set_param(instance, const_cast<float*>(key), p.FindParam("chroma_rgb"));
  const auto expected = RuntimeFrames("ChromaKeyPRO", {"angle=30", "outmode=1", "chroma_rgb=0xE61E1E"}, w, h, 2);
  EXPECT_EQ(Update(p, instance, w, h, 0.0, 0), expected[0]);
  EXPECT_EQ(Update(p, instance, w, h, 0.04, 1), expected[1]);
  p.destruct(instance);
}

TEST(Frei0rPlugins, ASettingMovedBetweenFramesActsFromTheNextFrameAndRepeatsKeepTheHistory) {
  const int32_t w = 32, h = 16;
  // ColorReducer keeps no history: after "bits" moves, frames are the
  // runtime's with the new value.
  {
    PluginHandle p = Open({"ColorReducer", Layout::kFilter});
    f0r_instance_t instance = p.construct(w, h);
    EXPECT_EQ(Update(p, instance, w, h, 0.0, 0), RuntimeFrames("ColorReducer", {}, w, h, 1)[0]);
    SetNumber(p, instance, "bits", 0.5);
    EXPECT_EQ(Update(p, instance, w, h, 0.04, 1), RuntimeFrames("ColorReducer", {"bits=5"}, w, h, 2)[1]);
    p.destruct(instance);
  }
  // TimeBlur2 averages past frames: a host that hands every parameter over
  // again before each frame (as MLT and GStreamer do) must not start it over.
  PluginHandle p = Open({"TimeBlur2", Layout::kFilter});
  f0r_instance_t instance = p.construct(w, h);
  const auto expected = RuntimeFrames("TimeBlur2", {}, w, h, 4);
  for (int k = 0; k < 4; ++k) {
    for (int i = 0; i < p.info.num_params; ++i) {
      f0r_param_info_t info;
      p.get_param_info(&info, i);
      if (info.type == F0R_PARAM_STRING) continue;
      double value[3] = {0, 0, 0};
      p.get_param(instance, value, i);
      p.set_param(instance, value, i);
    }
    EXPECT_EQ(Update(p, instance, w, h, k * 0.04, k), expected[size_t(k)]) << "frame " << k;
  }
  p.destruct(instance);
}

TEST(Frei0rPlugins, PresetParameterLoadsASettingsDocumentUnderTheParameters) {
  // A preset with Retina Killer's limit at 40 and fade at 60.
  const std::string path = testing::TempDir() + "/frei0r_retina_preset.xml";
  {
    host::EffectStage stage(Package(), Package().Find("Retina Killer"), 16, 16, 25.0);
    host::StageOptions options;
    options.sets = {"limit=40", "fade=60"};
    stage.ApplySettings(options);
    std::ofstream(path) << stage.Host().Store().Text();
  }
  const int32_t w = 32, h = 16;
  PluginHandle p = Open({"Retina Killer", Layout::kFilter});
  auto run = [&](const std::vector<std::pair<std::string, double>>& numbers) {
    f0r_instance_t instance = p.construct(w, h);
    const char* text = path.c_str();
    p.set_param(instance, &text, p.FindParam("preset"));
    for (const auto& [name, value] : numbers) SetNumber(p, instance, name, value);
    std::vector<std::vector<uint32_t>> frames;
    for (int k = 0; k < 3; ++k) frames.push_back(Update(p, instance, w, h, k * 0.04, k));
    p.destruct(instance);
    return frames;
  };
  const auto preset_frames = RuntimeFrames("Retina Killer", {"limit=40", "fade=60"}, w, h, 3);
  ASSERT_NE(preset_frames, RuntimeFrames("Retina Killer", {}, w, h, 3)) << "the preset changes nothing";
  // Parameters at their defaults keep the preset's values...
  EXPECT_EQ(run({}), preset_frames);
  // ...and a parameter the host moves wins over the preset.
  EXPECT_EQ(run({{"fade", 100.0 / 255.0}}), RuntimeFrames("Retina Killer", {"limit=40", "fade=100"}, w, h, 3));
  std::remove(path.c_str());
}

TEST(Frei0rPlugins, StackedInputsGiveTheMixersPicture) {
  PluginHandle mixer = Open({"ChromaKeyPRO", Layout::kMixer});
  PluginHandle stacked = Open({"ChromaKeyPRO", Layout::kStacked});
  const int32_t w = 24, h = 16;
  f0r_instance_t a = mixer.construct(w, h);
  f0r_instance_t b = stacked.construct(w, 2 * h);
  for (int k = 0; k < 3; ++k) {
    const std::vector<uint32_t> top = TestFrame(w, h, k), bottom = TestFrame(w, h, k + 7);
    std::vector<uint32_t> both = top;
    both.insert(both.end(), bottom.begin(), bottom.end());
    std::vector<uint32_t> mixed(top.size()), out(both.size(), kCanary);
    mixer.update2(a, k * 0.04, top.data(), bottom.data(), nullptr, mixed.data());
    stacked.update(b, k * 0.04, both.data(), out.data());
    EXPECT_TRUE(std::equal(mixed.begin(), mixed.end(), out.begin()));
    EXPECT_TRUE(std::equal(bottom.begin(), bottom.end(), out.begin() + long(top.size())));
  }
  mixer.destruct(a);
  stacked.destruct(b);
}

TEST(Frei0rPlugins, SeeksStartTheHistoryOver) {
  for (const char* effect : {"TimeBlur2", "Retina Killer", "LoPass"}) {
    SCOPED_TRACE(effect);
    PluginHandle p = Open({effect, Layout::kFilter});
    const int32_t w = 16, h = 8;
    const auto fresh = RuntimeFrames(effect, {}, w, h, 1)[0];
    f0r_instance_t instance = p.construct(w, h);
    for (int k = 0; k < 4; ++k) Update(p, instance, w, h, k * 0.04, k);
    // Frame 0's picture again, but after three others: the history shows.
    ASSERT_NE(Update(p, instance, w, h, 0.16, 0), fresh) << "the effect keeps no history";
    // Back to the start: the same picture as a fresh effect's first frame.
    EXPECT_EQ(Update(p, instance, w, h, 0.0, 0), fresh);
    // Far ahead: a fresh start again.
    for (int k = 1; k < 3; ++k) Update(p, instance, w, h, k * 0.04, k);
    EXPECT_EQ(Update(p, instance, w, h, 10.0, 0), fresh);
    p.destruct(instance);
  }
}

// After a seek to any frame, back or ahead, the frames that follow are the
// ones a fresh effect gives from that frame on: the history the effect had
// built is gone, and nothing of it leaks into the frames after the jump.
TEST(Frei0rPlugins, AfterASeekTheFramesAreThoseOfAFreshRunFromThatFrame) {
  struct Jump {
    const char* what;
    int64_t from_frame;  // played 0 .. from_frame - 1 first
    int64_t to_frame;
  };
  const Jump jumps[] = {{"ahead", 6, 50}, {"back", 9, 3}, {"back to the start", 5, 0}};
  const int32_t w = 20, h = 12;
  const int kAfter = 4;
  for (const char* effect : {"TimeBlur2", "Retina Killer"}) {
    PluginHandle p = Open({effect, Layout::kFilter});
    for (const Jump& jump : jumps) {
      SCOPED_TRACE(std::string(effect) + ", seek " + jump.what);
      const auto expected = RuntimeFrames(effect, {}, w, h, kAfter, jump.to_frame);
      f0r_instance_t instance = p.construct(w, h);
      for (int64_t k = 0; k < jump.from_frame; ++k) Update(p, instance, w, h, double(k) * 0.04, k);
      for (int k = 0; k < kAfter; ++k) {
        const int64_t frame = jump.to_frame + k;
        EXPECT_EQ(Update(p, instance, w, h, double(frame) * 0.04, frame), expected[size_t(k)]) << "frame " << frame;
      }
      p.destruct(instance);
    }
    // The history does show when there is no seek: the same frames, played on
    // from frame 0 without a jump, differ from the fresh run's.
    const auto fresh = RuntimeFrames(effect, {}, w, h, 2, 10);
    const auto played = RuntimeFrames(effect, {}, w, h, 12, 0);
    EXPECT_NE(played[11], fresh[1]) << effect << " keeps no history";
  }
}

TEST(Frei0rPlugins, HostileValuesGiveAPicture) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double numbers[] = {nan, -1.0, 2.0, 1e300, -0.0};
  // Not UTF-8, and under the temporary folder: ColorTracker writes its values file there.
  const std::string odd = testing::TempDir() + "/\xff\xfe";
  const char* texts[] = {"", "/nonexistent/preset.xml", odd.c_str(), nullptr};
  for (const PluginCase& c : kPlugins) {
    SCOPED_TRACE(PluginFileName(c.effect, c.layout));
    PluginHandle p = Open(c);
    EXPECT_EQ(p.construct(0, 0), nullptr);
    const int32_t w = 24, h = c.layout == Layout::kStacked ? 32 : 16;
    f0r_instance_t instance = p.construct(w, h);
    ASSERT_NE(instance, nullptr);
    for (int round = 0; round < 5; ++round) {
      for (int i = 0; i < p.info.num_params; ++i) {
        const f0r_param_info_t info = p.Param(i);
        if (info.type == F0R_PARAM_STRING) {
          const char* text = texts[round % 4];
          p.set_param(instance, &text, i);
        } else if (info.type == F0R_PARAM_COLOR) {
          const float rgb[3] = {float(numbers[round]), float(numbers[(round + 1) % 5]), float(numbers[(round + 2) % 5])};
          p.set_param(instance, const_cast<float*>(rgb), i);
        } else {
          double value = numbers[round];
          p.set_param(instance, &value, i);
          double back = -5;
          p.get_param(instance, &back, i);
          EXPECT_TRUE(back >= 0.0 && back <= 1.0) << info.name << " reads back " << back;
        }
      }
      const double times[] = {0.0, nan, -3.0, 1e12, 0.04};
      const std::vector<uint32_t> out = Update(p, instance, w, h, times[round], round);
      EXPECT_EQ(std::count(out.begin(), out.end(), kCanary), 0) << "round " << round;
    }
    p.destruct(instance);
  }
  std::remove(odd.c_str());
}

TEST(Frei0rPlugins, NumbersAreClampedAndNaNKeepsTheValue) {
  PluginHandle p = Open({"Retina Killer", Layout::kFilter});
  f0r_instance_t instance = p.construct(16, 16);
  for (int i = 0; i < p.info.num_params; ++i) {
    if (p.Param(i).type != F0R_PARAM_DOUBLE) continue;
    double value = 0.25, back = 0;
    p.set_param(instance, &value, i);
    value = std::numeric_limits<double>::quiet_NaN();
    p.set_param(instance, &value, i);
    p.get_param(instance, &back, i);
    EXPECT_EQ(back, 0.25);
    value = -3;
    p.set_param(instance, &value, i);
    p.get_param(instance, &back, i);
    EXPECT_EQ(back, 0.0);
    value = 7;
    p.set_param(instance, &value, i);
    p.get_param(instance, &back, i);
    EXPECT_EQ(back, 1.0);
  }
  p.destruct(instance);
}

TEST(Frei0rPlugins, ColorTrackerWritesItsValuesAsCsv) {
  PluginHandle p = Open({"ColorTracker", Layout::kFilter});
  const std::string path = testing::TempDir() + "/frei0r_track.csv";
  std::remove(path.c_str());
  f0r_instance_t instance = p.construct(40, 24);
  const char* text = path.c_str();
  p.set_param(instance, &text, p.FindParam("values file"));
  for (int k = 0; k < 3; ++k) Update(p, instance, 40, 24, k * 0.04, k);
  std::ifstream early(path);
  EXPECT_FALSE(early.good()) << "the file appears only when complete";
  p.destruct(instance);
  std::ifstream in(path);
  std::string header, line;
  std::getline(in, header);
  EXPECT_EQ(header, "frame,time,track x,track y,orientation");
  int rows = 0;
  while (std::getline(in, line)) {
    EXPECT_EQ(line.rfind(std::to_string(rows) + ",", 0), 0u) << line;
    ++rows;
  }
  EXPECT_EQ(rows, 3);
  std::remove(path.c_str());

  // A folder that does not exist: the same pictures, and nothing written.
  f0r_instance_t other = p.construct(40, 24);
  const char* bad = "/nonexistent/folder/track.csv";
  p.set_param(other, &bad, p.FindParam("values file"));
  SetNumber(p, other, "debuginfo", 1.0);  // the overlay: a picture unlike the input
  const auto expected = RuntimeFrames("ColorTracker", {"debuginfo=1"}, 40, 24, 2);
  ASSERT_NE(expected[0], TestFrame(40, 24, 0));
  EXPECT_EQ(Update(p, other, 40, 24, 0.0, 0), expected[0]);
  EXPECT_EQ(Update(p, other, 40, 24, 0.04, 1), expected[1]);
  p.destruct(other);
}

// Records where the effect moves the cursor, in place of the desktop the
// plug-in installed.
class RecordingDesktop final : public orrery::DesktopService {
 public:
  RecordingDesktop() : previous_(orrery::GetDesktopService()) { orrery::SetDesktopService(this); }
  ~RecordingDesktop() { orrery::SetDesktopService(previous_); }
  int32_t ScreenWidth() override { return 1000; }
  int32_t ScreenHeight() override { return 500; }
  void MoveCursor(int32_t x, int32_t y) override { moves.push_back({x, y}); }
  std::vector<std::pair<int32_t, int32_t>> moves;

 private:
  orrery::DesktopService* previous_;
};

// An object climbing the picture: "track y" in the CSV rises from near -1
// to near +1, and the cursor climbs the desktop with it.
TEST(Frei0rPlugins, ColorTrackerFollowsAnObjectMovingUpInItsCsvAndWithTheCursor) {
  PluginHandle p = Open({"ColorTracker", Layout::kFilter});
  ASSERT_NE(p.library, nullptr);
  RecordingDesktop desktop;
  const std::string path = testing::TempDir() + "/frei0r_rising.csv";
  std::remove(path.c_str());
  constexpr int32_t kW = 96, kH = 112;
  f0r_instance_t instance = p.construct(kW, kH);
  const char* text = path.c_str();
  p.set_param(instance, &text, p.FindParam("values file"));
  SetNumber(p, instance, "attach_mouse", 1.0);
  SetNumber(p, instance, "smooth", 0.0);
  for (int k = 0; k < 8; ++k) {
    // Grey, with a pure blue disc (the default object colour) of radius 8.
    std::vector<uint32_t> in(size_t(kW) * kH, 0xFF807870u), out(in.size());
    const int32_t cy = 100 - 12 * k;
    for (int32_t y = 0; y < kH; ++y) {
      for (int32_t x = 0; x < kW; ++x) {
        if ((x - 48) * (x - 48) + (y - cy) * (y - cy) <= 64) in[size_t(y) * kW + size_t(x)] = 0xFF0000FFu;
      }
    }
    p.update(instance, k * 0.04, in.data(), out.data());
  }
  p.destruct(instance);

  std::ifstream csv(path);
  std::string line;
  std::getline(csv, line);
  ASSERT_EQ(line, "frame,time,track x,track y,orientation");
  std::vector<double> ys;
  while (std::getline(csv, line)) {
    std::istringstream row(line);
    std::string cell;
    for (int column = 0; column <= 3 && std::getline(row, cell, ','); ++column) {
      if (column == 3) ys.push_back(std::stod(cell));
    }
  }
  std::remove(path.c_str());
  ASSERT_EQ(ys.size(), 8u);
  EXPECT_NEAR(ys.front(), 1 - 2 * 100 / 112.0, 0.05);
  EXPECT_NEAR(ys.back(), 1 - 2 * 16 / 112.0, 0.05);
  for (size_t i = 1; i < ys.size(); ++i) EXPECT_GT(ys[i], ys[i - 1]) << "frame " << i;
  ASSERT_EQ(desktop.moves.size(), 8u);
  EXPECT_NEAR(desktop.moves.front().second, 500 * 100 / 112.0, 5);
  EXPECT_NEAR(desktop.moves.back().second, 500 * 16 / 112.0, 5);
  for (size_t i = 1; i < desktop.moves.size(); ++i) EXPECT_LT(desktop.moves[i].second, desktop.moves[i - 1].second);
}

TEST(Frei0rClock, TellsSecondsFromMillisecondsAndSeeksFromFrames) {
  HostClock seconds;
  EXPECT_EQ(seconds.Advance(0.0).ms, 0);
  EXPECT_EQ(seconds.Advance(0.04).ms, 40);
  const HostClock::Tick third = seconds.Advance(0.08);
  EXPECT_EQ(third.ms, 80);
  EXPECT_EQ(third.frame, 2);
  EXPECT_FALSE(third.jumped);
  EXPECT_TRUE(seconds.Advance(0.04).jumped);   // back
  EXPECT_FALSE(seconds.Advance(0.08).jumped);  // on
  EXPECT_TRUE(seconds.Advance(0.08).jumped);   // the same frame again
  EXPECT_TRUE(seconds.Advance(5.0).jumped);    // far ahead

  HostClock ms;
  ms.Advance(0.0);
  EXPECT_EQ(ms.Advance(40.0).ms, 40);
  EXPECT_TRUE(ms.InMilliseconds());
  // pts * time base * 1000 carries rounding: 3 * 0.04 * 1000 = 119.99999999999999.
  EXPECT_EQ(ms.Advance(3 * 0.04 * 1000).ms, 120);
  EXPECT_EQ(ms.Advance(160.0).frame, 4);

  // A time no clock holds counts on from the last frame, as NaN does; a
  // period of almost nothing gives huge frame numbers, never an overflow.
  const HostClock::Tick huge = ms.Advance(1.7e101);
  EXPECT_EQ(huge.ms, 200);
  EXPECT_FALSE(huge.jumped);
  EXPECT_EQ(ms.Advance(-1e300).ms, 240);
  HostClock tiny;
  tiny.Advance(0.0);
  tiny.Advance(1e-300);
  const HostClock::Tick later = tiny.Advance(1.0);
  EXPECT_TRUE(later.jumped);
  EXPECT_EQ(later.ms, 1000);
  EXPECT_GT(later.frame, 0);
}

ParamDesc Setting(ParamType type, const std::string& key, const char* store_type, double minimum, double maximum,
                  double default_value) {
  ParamDesc p;
  p.name = p.target = key;
  p.type = type;
  p.store_type = store_type;
  p.minimum = minimum;
  p.maximum = maximum;
  p.whole = std::string(store_type) == "int";
  p.default_value = default_value;
  return p;
}

TEST(Frei0rParams, ValuesMapOntoSettings) {
  const ParamDesc angle = Setting(ParamType::kDouble, "angle", "float", 0, 90, 50);
  ParamValue v = DefaultValue(angle);
  EXPECT_NEAR(v.number, 50.0 / 90.0, 1e-12);
  EXPECT_FALSE(DiffersFromDefault(angle, v));
  v.number = 1.0 / 3.0;
  EXPECT_EQ(SettingAssignment(angle, v), "angle=30.000000");
  EXPECT_TRUE(DiffersFromDefault(angle, v));

  const ParamDesc bits = Setting(ParamType::kDouble, "bits", "int", 1, 8, 4);
  v.number = 0.5;  // 4.5 rounds to 5
  EXPECT_EQ(SettingAssignment(bits, v), "bits=5");

  const ParamDesc key = Setting(ParamType::kColor, "chroma_rgb", "int", 0, 0xFFFFFF, 0x0000FF);
  v = DefaultValue(key);
  EXPECT_EQ(PackRgb(v.red, v.green, v.blue), 0x0000FF);
  StoreColor(std::nanf(""), 2.0f, -1.0f, &v);  // NaN keeps red at 0; green clamps to 1, blue to 0
  EXPECT_EQ(SettingAssignment(key, v), "chroma_rgb=" + std::to_string(0x00FF00));
}

}  // namespace
}  // namespace nimbo::frei0r
