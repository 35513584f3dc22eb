// `nimbo demo` end to end with the real package, small and short so it stays
// quick: every one of the 24 effects draws a real picture that differs from
// the generated media it is fed, and --stills writes each tile.
#include <algorithm>
#include <filesystem>
#include <unordered_map>

#include "cli/demo_media.h"
#include "nimbo_run.h"

namespace nimbo::host {
namespace {

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 90;
constexpr int64_t kFrames = 6;

// Share of the pixels where some channel differs by more than 24 levels: a
// video encoder or a scaler changes a few levels, an effect far more.
double ChangedShare(const FrameBuffer& a, const FrameBuffer& b) {
  size_t changed = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) {
    for (int shift : {0, 8, 16}) {
      const int d = int(a.pixels[i] >> shift & 0xFF) - int(b.pixels[i] >> shift & 0xFF);
      if (d > 24 || d < -24) {
        ++changed;
        break;
      }
    }
  }
  return double(changed) / double(a.pixels.size());
}

// Share of the picture its commonest colour covers: 1 for a blank tile.
double CommonestShare(const FrameBuffer& f) {
  std::unordered_map<uint32_t, size_t> counts;
  size_t most = 0;
  for (uint32_t p : f.pixels) most = std::max(most, ++counts[p & 0xFFFFFFu]);
  return double(most) / double(f.pixels.size());
}

using NimboDemoTest = NimboTest;

TEST_F(NimboDemoTest, EveryEffectDrawsARealPictureUnlikeItsMediaAndWritesItAsAStill) {
  const RunResult r = Run({"demo", "--out", Path("demo"), "--stills", Path("stills"), "--size",
                           std::to_string(kWidth) + "x" + std::to_string(kHeight), "--frames", std::to_string(kFrames),
                           "--quiet"},
                          true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("24 effects"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("no picture"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("failed"), std::string::npos) << r.out;
  EXPECT_EQ(r.err.find("warning"), std::string::npos) << r.err;

  // The tile is the middle frame; every picture input is one of these media
  // at that frame (WAX inputs are volumes, not pictures).
  std::vector<std::pair<const char*, FrameBuffer>> media;
  for (auto [name, kind] : {std::pair{"shapes", DemoMedia::kShapes}, std::pair{"blue screen", DemoMedia::kBlueScreen},
                            std::pair{"landscape", DemoMedia::kLandscape}, std::pair{"title", DemoMedia::kTitle}}) {
    FrameBuffer picture(kWidth, kHeight);
    DrawDemoFrame(kind, picture, kFrames / 2, kFrames);
    media.emplace_back(name, std::move(picture));
  }

  int32_t tiles = 0;
  for (const auto& clip : std::filesystem::directory_iterator(Path("demo"))) {
    if (clip.path().extension() != ".mp4") continue;
    const std::string name = clip.path().stem();
    SCOPED_TRACE(name);
    ++tiles;
    const std::vector<FrameBuffer> still = ReadAll("stills/" + name + ".png");
    ASSERT_EQ(still.size(), 1u);
    ASSERT_EQ(still[0].width, kWidth);
    ASSERT_EQ(still[0].height, kHeight);
    EXPECT_LT(CommonestShare(still[0]), 0.95) << "a flat tile";
    for (const auto& [media_name, picture] : media) {
      EXPECT_GT(ChangedShare(still[0], picture), 0.01) << "the tile is much the same as the " << media_name << " fed to it";
    }
  }
  EXPECT_EQ(tiles, 24);
  EXPECT_TRUE(std::filesystem::is_regular_file(Path("demo/contact_sheet.png")));
}

}  // namespace
}  // namespace nimbo::host
