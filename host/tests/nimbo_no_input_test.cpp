// `nimbo render` with nothing to take the size and length from: single
// effects and chains without inputs, through the real program and package.
// The size is 640x480, or 512x512 (the volume's screen) when the last effect
// makes a WAX volume; the length one frame into a picture and five seconds
// into a video or an image sequence; --size and --frames say otherwise.
#include <string>
#include <vector>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

struct NoInputCase {
  std::string name;
  std::vector<std::string> args;  // after "render", before "-o"
  std::string output;             // in the scratch folder
  int32_t width, height;
  size_t frames;
};

TEST_F(NimboTest, WithoutInputsSizeAndLengthFollowTheLastEffectAndTheOutputUnlessGiven) {
  const std::vector<NoInputCase> cases = {
      {"a 3D effect into a picture", {"Donkey"}, "one.png", 640, 480, 1},
      {"into a video: five seconds", {"Donkey", "--fps", "2"}, "five.mkv", 640, 480, 10},
      {"into a sequence: five seconds", {"Donkey", "--fps", "2"}, "seq_%02d.png", 640, 480, 10},
      {"a WAX volume", {"3DStoWAX"}, "volume.png", 512, 512, 1},
      {"a chain ending in a WAX volume", {"3DStoWAX", "--then", "WAXRotate"}, "turned.png", 512, 512, 1},
      {"a chain from a volume to a picture", {"3DStoWAX", "--then", "WAXViewer"}, "viewed.png", 640, 480, 1},
      {"a chain of a 3D effect and a filter", {"Donkey", "--then", "ColorTrafo", "--fps", "1"}, "chain.mkv", 640, 480, 5},
      {"--size", {"3DStoWAX", "--then", "WAXRotate", "--size", "96x64"}, "small.png", 96, 64, 1},
      {"--frames", {"Donkey", "--frames", "3"}, "three.mkv", 640, 480, 3},
      {"--size and --frames", {"Donkey", "--size", "48x32", "--frames", "2"}, "two_%d.png", 48, 32, 2},
      // Five seconds at the slowest frame rates are less than a frame: one.
      {"five seconds of less than a frame", {"Donkey", "--fps", "0.05"}, "slow.mkv", 640, 480, 1},
      {"--fps at its lowest", {"Donkey", "--fps", "0.001"}, "slowest_%d.png", 640, 480, 1},
  };
  for (const NoInputCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args{"render"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    args.insert(args.end(), {"--quiet", "-o", Path(c.output)});
    const RunResult r = Run(args, true);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::vector<FrameBuffer> frames = ReadAll(c.output);
    ASSERT_EQ(frames.size(), c.frames);
    EXPECT_EQ(frames[0].width, c.width);
    EXPECT_EQ(frames[0].height, c.height);
  }
}

}  // namespace
}  // namespace nimbo::host
