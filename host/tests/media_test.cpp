// Media input and output through FFmpeg: exact PNG round trips, alpha
// handling, image sequences and video frame counts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "media/ffmpeg_util.h"
#include "runtime/host_error.h"
#include "media/media_input.h"
#include "media/media_output.h"
#include "scratch_folder_test.h"

namespace nimbo::host {
namespace {

// FFmpeg's own log lines would bury the test report.
class QuietFfmpeg : public ::testing::Environment {
 public:
  void SetUp() override { SetFfmpegVerbose(false); }
};
const ::testing::Environment* const kQuietFfmpeg = ::testing::AddGlobalTestEnvironment(new QuietFfmpeg);

class MediaTest : public ScratchFolderTest {
 protected:
  size_t FileCount() const {
    return size_t(std::distance(std::filesystem::directory_iterator(dir_), std::filesystem::directory_iterator()));
  }

  static FrameBuffer Noise(int32_t w, int32_t h, uint32_t seed) {
    FrameBuffer f(w, h);
    uint32_t x = seed * 2654435761u + 1;
    for (uint32_t& p : f.pixels) {
      x ^= x << 13;
      x ^= x >> 17;
      x ^= x << 5;
      p = x;
    }
    return f;
  }
  static void Write(const std::string& path, const std::vector<FrameBuffer>& frames, bool keep_alpha) {
    auto out = CreateOutput(path, frames[0].width, frames[0].height, OutputOptions{keep_alpha, 18, 25.0});
    for (const FrameBuffer& f : frames) out->Write(f);
    out->Finish();
  }
};

TEST_F(MediaTest, PngKeepsAlphaExactlyAndAnOpaqueOutputSetsAlpha255) {
  const FrameBuffer picture = Noise(37, 23, 1);  // odd sizes catch stride mistakes
  Write(Path("a.png"), {picture}, true);
  auto in = OpenMedia(Path("a.png"));
  EXPECT_TRUE(in->IsStill());
  EXPECT_EQ(in->FrameCountHint(), 1);
  FrameBuffer back;
  ASSERT_TRUE(in->ReadFrame(back, in->Width(), in->Height()));
  EXPECT_EQ(back.width, 37);
  EXPECT_EQ(back.height, 23);
  EXPECT_EQ(back.pixels, picture.pixels);
  EXPECT_FALSE(in->ReadFrame(back, 37, 23));

  // PNG keeps alpha without being asked; TIFF is opaque unless asked.
  Write(Path("b.png"), {picture}, false);
  ASSERT_TRUE(OpenMedia(Path("b.png"))->ReadFrame(back, 37, 23));
  EXPECT_EQ(back.pixels, picture.pixels);
  Write(Path("b.tif"), {picture}, false);
  auto opaque = OpenMedia(Path("b.tif"));
  ASSERT_TRUE(opaque->ReadFrame(back, 37, 23));
  for (size_t i = 0; i < back.pixels.size(); ++i) {
    ASSERT_EQ(back.pixels[i], picture.pixels[i] | 0xFF000000u) << i;
  }
}

TEST_F(MediaTest, InputsAreScaledToTheAskedSize) {
  FrameBuffer picture(40, 20, 0xFF336699u);
  Write(Path("flat.png"), {picture}, true);
  auto in = OpenMedia(Path("flat.png"));
  FrameBuffer back;
  ASSERT_TRUE(in->ReadFrame(back, 10, 30));
  EXPECT_EQ(back.width, 10);
  EXPECT_EQ(back.height, 30);
  for (uint32_t p : back.pixels) ASSERT_EQ(p, 0xFF336699u);  // a flat picture stays flat
}

TEST_F(MediaTest, SequencesAndVideosKeepTheirFrameCountAndSize) {
  std::vector<FrameBuffer> frames;
  for (uint32_t k = 0; k < 7; ++k) frames.push_back(FrameBuffer(48, 32, 0xFF000000u | k * 0x202020u));
  Write(Path("s_%03d.png"), frames, false);
  EXPECT_EQ(FileCount(), 7u);
  auto seq = OpenMedia(Path("s_%03d.png"));
  FrameBuffer back;
  int count = 0;
  while (seq->ReadFrame(back, 48, 32)) {
    EXPECT_EQ(back.pixels[0], frames[size_t(count)].pixels[0]);
    ++count;
  }
  EXPECT_EQ(count, 7);

  for (const char* name : {"v.mp4", "v.mkv", "v.webm"}) {
    Write(Path(name), frames, false);
    auto video = OpenMedia(Path(name));
    EXPECT_FALSE(video->IsStill());
    EXPECT_EQ(video->Width(), 48);
    EXPECT_EQ(video->Height(), 32);
    EXPECT_NEAR(video->FrameRate(), 25.0, 0.01);
    int n = 0;
    while (video->ReadFrame(back, 48, 32)) {
      // Lossy, but a flat grey must come back close to itself.
      const int expected = int(frames[size_t(n)].pixels[0] & 0xFF);
      EXPECT_NEAR(int(back.pixels[10] & 0xFF), expected, 4) << name << " frame " << n;
      EXPECT_EQ(back.pixels[10] >> 24, 0xFFu);
      ++n;
    }
    EXPECT_EQ(n, 7) << name;
  }
}

TEST_F(MediaTest, OddSizedVideoAndAlphaVideo) {
  std::vector<FrameBuffer> frames(3, Noise(33, 17, 5));
  {
    auto out = CreateOutput(Path("odd.mp4"), 33, 17, OutputOptions{false, 18, 25.0, true});
    for (const FrameBuffer& f : frames) out->Write(f);
    out->Finish();
  }
  auto odd = OpenMedia(Path("odd.mp4"));
  EXPECT_EQ(odd->Width(), 33);  // kept, as asked
  EXPECT_EQ(odd->Height(), 17);
  Write(Path("padded.mp4"), frames, false);
  auto padded = OpenMedia(Path("padded.mp4"));
  EXPECT_EQ(padded->Width(), 34);  // grown to the even size players take
  EXPECT_EQ(padded->Height(), 18);
  Write(Path("alpha.mov"), frames, true);  // PNG in MOV: lossless with alpha
  auto alpha = OpenMedia(Path("alpha.mov"));
  FrameBuffer back;
  ASSERT_TRUE(alpha->ReadFrame(back, 33, 17));
  EXPECT_EQ(back.pixels, frames[0].pixels);
}

TEST_F(MediaTest, BadFilesAndUnwritableOutputsFailClearlyAndLeaveNothing) {
  EXPECT_THROW(OpenMedia(Path("missing.png")), HostError);
  EXPECT_THROW(OpenMedia(dir_), HostError);
  EXPECT_THROW(OpenMedia(Path("none_%04d.png")), HostError);
  {
    FILE* f = std::fopen(Path("junk.png").c_str(), "wb");
    std::fputs("this is not a picture", f);
    std::fclose(f);
  }
  EXPECT_THROW(
      {
        auto in = OpenMedia(Path("junk.png"));
        FrameBuffer b;
        in->ReadFrame(b, 4, 4);
      },
      HostError);
  std::filesystem::remove(Path("junk.png"));
  EXPECT_THROW(CreateOutput(Path("x.unknownext"), 8, 8, {}), HostError);
  EXPECT_THROW(CreateOutput(Path("x.jpg"), 8, 8, OutputOptions{true, 18, 25}), HostError);
  EXPECT_THROW(CreateOutput(Path("x.mp4"), 8, 8, OutputOptions{true, 18, 25}), HostError);
  EXPECT_THROW(CreateOutput(Path("no/such/x.png"), 8, 8, {}), HostError);
  {
    auto unfinished = CreateOutput(Path("u.mp4"), 16, 16, {});
    unfinished->Write(FrameBuffer(16, 16, 0xFF000000u));
  }
  {
    auto unfinished = CreateOutput(Path("u_%02d.png"), 16, 16, {});
    unfinished->Write(FrameBuffer(16, 16, 0xFF000000u));
    unfinished->Write(FrameBuffer(16, 16, 0xFF000000u));
  }
  EXPECT_EQ(FileCount(), 0u);  // neither output nor temporary files remain
}

}  // namespace
}  // namespace nimbo::host
