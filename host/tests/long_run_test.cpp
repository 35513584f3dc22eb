// Memory over long runs: a few thousand small frames into each kind of
// output (PNG, JPEG and BMP sequences, a video), with --values, must not
// take more memory than a tenth of them did. The child's peak resident size
// comes from wait4().
#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

#if defined(__SANITIZE_ADDRESS__)
// AddressSanitizer makes the host's part of every frame slower: half the
// frames keeps the test within a minute on two cores, and growth of a few
// kilobytes a frame still shows.
constexpr int kFrames = 1500;
#else
constexpr int kFrames = 3000;
#endif

class LongRunTest : public NimboTest {
 protected:
  void SetUp() override {
    NimboTest::SetUp();
    // AddressSanitizer keeps freed memory in a quarantine of up to 256 MB,
    // which would read as growth; a small one keeps the comparison fair.
    const char* asan = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(asan ? asan : "") + ":quarantine_size_mb=4").c_str(), 1);
  }
  // Peak resident size in MB of one render of `frames` frames from `input`
  // into `output`.
  double PeakMb(const std::string& input, const std::string& output, int frames) const {
    rusage usage{};
    const pid_t pid = Spawn({"render", "copy", "-i", Path(input), "--frames", std::to_string(frames), "--values",
                             Path("v.csv"), "-o", Path(output), "--quiet"});
    const int code = Reap(pid, &usage);
    EXPECT_EQ(code, 0) << ReadFile(Path(".stderr"));
    return double(usage.ru_maxrss) / 1024.0;
  }
};

TEST_F(LongRunTest, MemoryStaysFlatOverThousandsOfFramesForEveryOutputKind) {
  WritePicture("in.png", Noise(32, 32));
  // The last run reads the PNG sequence the first one wrote: thousands of
  // pictures in, too.
  const std::pair<const char*, const char*> runs[] = {{"in.png", "png_%05d.png"},
                                                      {"in.png", "jpg_%05d.jpg"},
                                                      {"in.png", "bmp_%05d.bmp"},
                                                      {"in.png", "clip.mp4"},
                                                      {"png_%05d.png", "clip.mkv"}};
  for (const auto& [input, output] : runs) {
    const double small = PeakMb(input, output, kFrames / 10);
    const double large = PeakMb(input, output, kFrames);
    EXPECT_LT(large - small, 8.0) << output << ": " << small << " MB for " << kFrames / 10 << " frames, " << large
                                  << " MB for " << kFrames;
    const std::string csv = ReadFile(Path("v.csv"));
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), kFrames + 1) << output;  // a header and a row a frame
  }
}

}  // namespace
}  // namespace nimbo::host
