// Loading a Distorter preset the way `nimbo render --preset` does: parse the
// settings document, then let the effect read every key it wants. Each
// document is read twice in the same run: through the store's key index,
// and through a plain walk of the block per key (what every lookup did
// before the index). Compare the two on the same document, not absolute
// times: the machines are shared.
//
// Documents (arg 0):
//   0  160 morphs declaring 1000 line pairs each, none of them stored (they
//      keep their defaults): 1.28 million lookups of missing keys in a
//      45 KB document;
//   1  two morphs of 1000 stored pairs, 1 MB (every key present);
//   2  the largest document a preset may be, 16 MiB of stored line pairs
//      (index only: the walk would take many minutes).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "bench_effects.h"
#include "framework/config_data.h"
#include "framework/settings_document.h"
#include "orrery/effect.h"
#include "runtime/effect_host.h"

namespace {

constexpr const char* kLineKeys[8] = {
    "morph%iline%i_l1_p1_x", "morph%iline%i_l1_p1_y", "morph%iline%i_l1_p2_x", "morph%iline%i_l1_p2_y",
    "morph%iline%i_l2_p1_x", "morph%iline%i_l2_p1_y", "morph%iline%i_l2_p2_x", "morph%iline%i_l2_p2_y",
};

void Add(std::string& text, const char* key, const char* type, const std::string& value) {
  text.append("<data name=\"").append(key).append("\" type=\"").append(type).append("\">");
  text.append(value).append("</data>\r\n");
}

// A Distorter settings document of `morphs` morphs declaring `lines` pairs
// each, of which the first `stored` are written out; with `limit` > 0 the
// morphs stop before the text would pass `limit` bytes.
std::string DistorterPreset(int morphs, int lines, int stored, size_t limit) {
  std::string body;
  char key[96];
  int written = 0;
  for (int i = 0; i < morphs; ++i) {
    std::string morph;
    std::snprintf(key, sizeof key, "morph%iname", i);
    Add(morph, key, "string", "Morph " + std::to_string(i));
    std::snprintf(key, sizeof key, "morph%iefrom", i);
    Add(morph, key, "float", "0.500000");
    std::snprintf(key, sizeof key, "morph%ieto", i);
    Add(morph, key, "float", "0.500000");
    std::snprintf(key, sizeof key, "morph%in_lines", i);
    Add(morph, key, "int", std::to_string(lines));
    for (int j = 0; j < stored; ++j) {
      for (int k = 0; k < 8; ++k) {
        std::snprintf(key, sizeof key, kLineKeys[k], i, j);
        Add(morph, key, "float", std::to_string(10 + (i + j * 3 + k * 7) % 600) + ".250000");
      }
    }
    if (limit > 0 && body.size() + morph.size() + 400 > limit) break;
    body += morph;
    ++written;
  }
  std::string text = "<Settings>\r\n<ConfigData>\r\n";
  Add(text, "use_filtering", "int", "1");
  Add(text, "n_morphs", "int", std::to_string(written));
  text += body;
  Add(text, "input_res", "int", "0");
  Add(text, "input_w", "int", "640");
  Add(text, "input_h", "int", "480");
  return text + "</ConfigData>\r\n</Settings>\r\n";
}

const std::string& Document(int64_t which) {
  static const std::string docs[] = {
      DistorterPreset(160, 1000, 0, 0),
      DistorterPreset(2, 1000, 1000, 0),
      DistorterPreset(1000, 1000, 1000, nimbo::SettingsDocument::kMaxFileSize),
  };
  return docs[which];
}

// Every read answered by walking the block, as the store did before it
// kept an index; writes go to the document as usual.
class WalkingStore final : public orrery::ConfigStore {
 public:
  explicit WalkingStore(nimbo::SettingsDocument& store) : store_(store) {}
  void BeginWriting() override { store_.BeginWriting(); }
  int32_t GetInt(const char* key, int32_t def) override {
    if (std::strcmp(key, "!") == 0) return store_.GetInt(key, def);
    const auto text = Find(key);
    return text ? nimbo::ScanInt(*text, 10).value_or(0) : def;
  }
  int32_t SetInt(const char* key, int32_t value) override { return store_.SetInt(key, value); }
  float GetFloat(const char* key, float def) override {
    const auto text = Find(key);
    return text ? nimbo::ScanFloat(*text).value_or(0.0f) : def;
  }
  int32_t SetFloat(const char* key, float value) override { return store_.SetFloat(key, value); }
  const char* GetString(const char* key, const char* def) override {
    const auto text = Find(key);
    if (!text) return def;
    buffer_ = *text;
    return buffer_.c_str();
  }
  int32_t SetString(const char* key, const char* value) override { return store_.SetString(key, value); }
  std::string GetPath(const char* key, const char* def, bool* used_default) override {
    const auto text = Find(key);
    if (used_default) *used_default = !text;
    return text ? *text : std::string(def);
  }
  int32_t SetPath(const char* key, const char* path) override { return store_.SetPath(key, path); }

 private:
  std::optional<std::string> Find(const char* key) { return nimbo::WalkLookup(store_.Document(), key); }
  nimbo::SettingsDocument& store_;
  std::string buffer_;
};

// Arg 0: the document; arg 1: 0 through the index, 1 through the walk.
void BM_LoadDistorterPreset(benchmark::State& state) {
  const std::string& text = Document(state.range(0));
  const bool walk = state.range(1) != 0;
  for (auto _ : state) {
    nimbo::host::EffectHost host(64, 48, 25.0);
    std::unique_ptr<orrery::Effect> effect = nimbo::bench::CreateEffectNamed("Distorter");
    effect->SetHostContext(&host);
    WalkingStore walking(host.Store());
    if (walk) host.UseStore(&walking);
    if (!host.Store().Load(text)) state.SkipWithError("the document does not parse");
    effect->UpdateConfig();
    benchmark::DoNotOptimize(effect.get());
  }
  state.counters["bytes"] = double(text.size());
}
BENCHMARK(BM_LoadDistorterPreset)->Args({0, 0})->Args({1, 0})->Args({2, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadDistorterPreset)->Args({0, 1})->Args({1, 1})->Iterations(1)->Unit(benchmark::kMillisecond);

// The parse alone, for scale: loading can be no faster than this.
void BM_ParseOnly(benchmark::State& state) {
  const std::string& text = Document(state.range(0));
  for (auto _ : state) {
    nimbo::SettingsDocument store;
    benchmark::DoNotOptimize(store.Load(text));
  }
}
BENCHMARK(BM_ParseOnly)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
