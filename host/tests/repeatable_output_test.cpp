// The same command makes the same files, byte for byte. The second run of
// each pair is made as unlike the first as a machine can make it without
// changing the pictures: its heap starts full of a fill byte (glibc's
// MALLOC_PERTURB_, standing in for what earlier effects leave behind in a
// long demo) and it may use one processor only (what taskset or a
// container does), so an encoder that reads memory it never wrote, or one
// whose output follows the number of processors, shows here.
#include <sched.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "cli/demo_media.h"
#include "nimbo_run.h"

namespace nimbo::host {
namespace {

class RepeatableOutputTest : public NimboTest {
 protected:
  // Runs nimbo as Run does, with a perturbed heap and on one processor.
  RunResult RunUnlike(const std::vector<std::string>& args, bool real_package) const {
    cpu_set_t all;
    CPU_ZERO(&all);
    sched_getaffinity(0, sizeof all, &all);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &all)) {
        CPU_SET(cpu, &one);
        break;
      }
    }
    sched_setaffinity(0, sizeof one, &one);
    setenv("MALLOC_PERTURB_", "85", 1);
    RunResult r = Run(args, real_package);
    unsetenv("MALLOC_PERTURB_");
    sched_setaffinity(0, sizeof all, &all);
    return r;
  }

  // Every file under `folder` (a name of the scratch folder) with its bytes.
  std::map<std::string, std::string> Contents(const std::string& folder) const {
    std::map<std::string, std::string> files;
    for (const auto& e : std::filesystem::directory_iterator(Path(folder))) {
      files[e.path().filename()] = ReadFile(e.path());
    }
    return files;
  }

  // Names of the files that differ between two folders' contents (or are
  // in only one of them).
  static std::vector<std::string> Differing(const std::map<std::string, std::string>& a,
                                            const std::map<std::string, std::string>& b) {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : a) {
      const auto other = b.find(name);
      if (other == b.end() || other->second != bytes) names.push_back(name);
    }
    for (const auto& [name, bytes] : b) {
      if (!a.count(name)) names.push_back(name);
    }
    return names;
  }
};

using RepeatableDemoTest = RepeatableOutputTest;
using RepeatableRenderTest = RepeatableOutputTest;

TEST_F(RepeatableDemoTest, TwoRunsWriteTheSameClipsTilesAndContactSheet) {
  // A 3D effect first, as in the whole demo, then the effects whose clips
  // differed between runs.
  std::vector<std::string> args{"demo", "--size", "160x90", "--frames", "12", "--quiet"};
  for (const char* name : {"Evaluator3D", "Distorter", "WAXCombine", "ColorTrafo"}) {
    args.push_back("--only");
    args.push_back(name);
  }
  auto first = args, second = args;
  first.insert(first.end(), {"--out", Path("first"), "--stills", Path("first_stills")});
  second.insert(second.end(), {"--out", Path("second"), "--stills", Path("second_stills")});
  const RunResult a = Run(first, true);
  ASSERT_EQ(a.code, 0) << a.err;
  const RunResult b = RunUnlike(second, true);
  ASSERT_EQ(b.code, 0) << b.err;

  const auto clips = Contents("first");
  EXPECT_EQ(clips.size(), 5u);  // four clips and the contact sheet
  EXPECT_EQ(clips.count("Distorter.mp4"), 1u);
  EXPECT_EQ(clips.count("WAXCombine.mp4"), 1u);
  EXPECT_EQ(Differing(clips, Contents("second")), std::vector<std::string>{});
  const auto stills = Contents("first_stills");
  EXPECT_EQ(stills.size(), 4u);
  EXPECT_EQ(Differing(stills, Contents("second_stills")), std::vector<std::string>{});
}

TEST_F(RepeatableRenderTest, TwoRendersOfAClipWriteTheSameVideoInEveryContainer) {
  // Moving shapes, long enough for the encoder's lookahead to work.
  constexpr int32_t kWidth = 160, kHeight = 90;
  constexpr int64_t kFrames = 30;
  {
    auto out = CreateOutput(Path("in.mkv"), kWidth, kHeight, OutputOptions{false, 0, 25});
    FrameBuffer frame(kWidth, kHeight);
    for (int64_t n = 0; n < kFrames; ++n) {
      DrawDemoFrame(DemoMedia::kShapes, frame, n, kFrames);
      out->Write(frame);
    }
    out->Finish();
  }
  std::filesystem::create_directory(Path("first"));
  std::filesystem::create_directory(Path("second"));
  for (const char* ext : {"mp4", "mkv", "webm", "mov", "avi"}) {
    const std::string name = std::string("out.") + ext;
    const RunResult a = Run({"render", "copy", "-i", Path("in.mkv"), "-o", Path("first/" + name), "--quiet"});
    ASSERT_EQ(a.code, 0) << a.err;
    const RunResult b = RunUnlike({"render", "copy", "-i", Path("in.mkv"), "-o", Path("second/" + name), "--quiet"},
                                  false);
    ASSERT_EQ(b.code, 0) << b.err;
    EXPECT_EQ(ReadAll("first/" + name).size(), size_t(kFrames)) << name;
  }
  EXPECT_EQ(Differing(Contents("first"), Contents("second")), std::vector<std::string>{});
}

}  // namespace
}  // namespace nimbo::host
