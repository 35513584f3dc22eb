// Keying quality on footage with a known matte: a subject composited over a
// blue and over a green screen (chroma_key_footage.h). For each screen the
// mean absolute error of the recovered foreground coverage (0..1) is printed
// for ChromaKeyPRO's kernel (its transparency a read from the alpha byte of
// the null-colour mode, coverage = 1 - a/255) and for ffmpeg's chromakey
// (coverage = its alpha). Each keyer's settings (cone angle and alpha map for
// ours, similarity and blend for ffmpeg's) are tuned on one frame and scored
// on another frame with a different subject position and noise.
//
//   bench_chroma_key_quality        (needs ffmpeg on the PATH)
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "chroma_key_footage.h"
#include "chroma_key_kernel.h"

namespace {

using namespace nimbo;

constexpr int32_t kW = 640, kH = 360;

double Mae(const std::vector<float>& truth, const std::vector<float>& estimate) {
  double sum = 0;
  for (size_t i = 0; i < truth.size(); ++i) sum += std::fabs(truth[i] - estimate[i]);
  return sum / double(truth.size());
}

struct OursSetting {
  float angle, x0, x1;
};

std::vector<float> KeyOurs(const bench::Footage& f, uint32_t key, const OursSetting& s) {
  ChromaKeyInputs in;
  in.key_rgb = key;
  in.angle = s.angle;
  const std::vector<AlphaPoint> map = {{s.x0, 0.0f}, {s.x1, 1.0f}};
  const ChromaKeyParams params = MakeChromaKeyParams(in, BuildAlphaLut(map));
  std::vector<uint32_t> px(f.frame.begin(), f.frame.end());
  for (uint32_t& p : px) p &= 0x00FFFFFF;  // foreground keeps alpha 0 = opaque
  ChromaKeyKernel()(px.data(), nullptr, px.size(), params);
  std::vector<float> coverage(px.size());
  for (size_t i = 0; i < px.size(); ++i) coverage[i] = 1.0f - float(px[i] >> 24) / 255.0f;
  return coverage;
}

struct FfmpegSetting {
  float similarity, blend;
};

// Runs ffmpeg's chromakey over the frame; empty on failure.
std::vector<float> KeyFfmpeg(const bench::Footage& f, uint32_t key, const FfmpegSetting& s, const std::string& dir) {
  const std::string in = dir + "/in.bgra", out = dir + "/out.bgra";
  std::FILE* file = std::fopen(in.c_str(), "wb");
  if (!file) return {};
  std::fwrite(f.frame.data(), 4, f.frame.size(), file);
  std::fclose(file);
  char cmd[1024];
  std::snprintf(cmd, sizeof cmd,
                "ffmpeg -v error -y -f rawvideo -pix_fmt bgra -s %dx%d -i %s "
                "-vf format=yuva444p,chromakey=0x%06X:%g:%g,format=bgra -f rawvideo %s",
                int(f.width), int(f.height), in.c_str(), unsigned(key), double(s.similarity), double(s.blend),
                out.c_str());
  if (std::system(cmd) != 0) return {};
  std::vector<uint32_t> px(f.frame.size());
  file = std::fopen(out.c_str(), "rb");
  if (!file) return {};
  const size_t got = std::fread(px.data(), 4, px.size(), file);
  std::fclose(file);
  if (got != px.size()) return {};
  std::vector<float> coverage(px.size());
  for (size_t i = 0; i < px.size(); ++i) coverage[i] = float(px[i] >> 24) / 255.0f;
  return coverage;
}

}  // namespace

int main() {
  char dir_template[] = "/tmp/chroma_quality_XXXXXX";
  const char* dir = mkdtemp(dir_template);
  if (!dir) {
    std::perror("mkdtemp");
    return 1;
  }
  struct Screen {
    const char* name;
    uint32_t rgb;
  } screens[] = {{"blue", 0x1830D0}, {"green", 0x30B040}};
  std::printf("mean absolute alpha error (0..1), tuned on one frame, scored on another, %dx%d\n", int(kW), int(kH));
  int status = 0;
  for (const Screen& screen : screens) {
    const bench::Footage train = bench::MakeFootage(kW, kH, screen.rgb, 11);
    const bench::Footage test = bench::MakeFootage(kW, kH, screen.rgb, 12);

    OursSetting best_ours{50, 0, 1};
    double best = 1e9;
    for (float angle = 10; angle <= 80; angle += 5)
      for (float x0 : {0.0f, 0.05f, 0.1f, 0.2f, 0.3f})
        for (float x1 : {0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.8f, 1.0f}) {
          if (x1 <= x0) continue;
          const double e = Mae(train.matte, KeyOurs(train, screen.rgb, {angle, x0, x1}));
          if (e < best) best = e, best_ours = {angle, x0, x1};
        }
    const double ours = Mae(test.matte, KeyOurs(test, screen.rgb, best_ours));
    const double ours_default = Mae(test.matte, KeyOurs(test, screen.rgb, {50, 0, 1}));

    FfmpegSetting best_ff{0.1f, 0.0f};
    best = 1e9;
    for (float sim : {0.02f, 0.05f, 0.08f, 0.1f, 0.15f, 0.2f, 0.3f})
      for (float blend : {0.0f, 0.02f, 0.05f, 0.1f, 0.2f}) {
        const std::vector<float> c = KeyFfmpeg(train, screen.rgb, {sim, blend}, dir);
        if (c.empty()) continue;
        const double e = Mae(train.matte, c);
        if (e < best) best = e, best_ff = {sim, blend};
      }
    const std::vector<float> ff = KeyFfmpeg(test, screen.rgb, best_ff, dir);
    if (ff.empty()) {
      std::fprintf(stderr, "bench_chroma_key_quality: ffmpeg chromakey failed\n");
      status = 1;
      continue;
    }
    const double theirs = Mae(test.matte, ff);
    std::printf("%-6s ChromaKeyPRO %.4f (angle %.0f, map %.2f..%.2f; default settings %.4f)  "
                "ffmpeg chromakey %.4f (similarity %.2f, blend %.2f)  ratio %.2f\n",
                screen.name, ours, double(best_ours.angle), double(best_ours.x0), double(best_ours.x1), ours_default,
                theirs, double(best_ff.similarity), double(best_ff.blend), theirs / ours);
  }
  std::remove((std::string(dir) + "/in.bgra").c_str());
  std::remove((std::string(dir) + "/out.bgra").c_str());
  rmdir(dir);
  return status;
}
