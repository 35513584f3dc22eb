// What `nimbo render` promises about files: no output lands on an input or
// on another output, outputs appear together and only when the whole run
// succeeded, and every refusal says what is wrong and what would work.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

using Args = std::vector<std::string>;

class OutputSafetyTest : public NimboTest {
 protected:
  void WriteText(const std::string& name, const std::string& text) const { std::ofstream(Path(name)) << text; }
  // A small video of `frames` frames at w x h from the fixture's generator.
  void MakeVideo(const std::string& name, int frames, const std::string& size = "16x16") const {
    const RunResult r = Run({"render", "gen", "--size", size, "--frames", std::to_string(frames), "-o", Path(name)});
    ASSERT_EQ(r.code, 0) << r.err;
  }
};

TEST_F(OutputSafetyTest, AnOutputThatIsAnInputOrAnotherOutputIsRefusedBeforeAnythingIsWritten) {
  MakeVideo("in.mp4", 3);
  WritePicture("in.png", Noise(8, 8));
  WritePicture("f_0001.png", Noise(8, 8));
  WritePicture("f_0002.png", Noise(8, 8));
  std::filesystem::create_directory(Path("x"));
  ASSERT_EQ(link(Path("in.mp4").c_str(), Path("hard.mp4").c_str()), 0);
  ASSERT_EQ(link(Path("in.png").c_str(), Path("g_1.png").c_str()), 0);  // a frame of the output sequence
  ASSERT_EQ(symlink(Path("in.png").c_str(), Path("soft.png").c_str()), 0);
  const RunResult saved = Run({"render", "copy", "-i", Path("in.png"), "-o", Path("saved.png"), "--save-preset",
                               Path("p.xml")});
  ASSERT_EQ(saved.code, 0) << saved.err;
  const std::string mp4 = Path("in.mp4"), png = Path("in.png");
  const std::vector<Args> cases = {
      {"render", "copy", "-i", mp4, "-o", mp4},
      {"render", "copy", "-i", mp4, "-o", Path("x/../in.mp4")},
      {"render", "copy", "-i", mp4, "-o", dir_ + "/./x/../in.mp4"},
      {"render", "copy", "-i", mp4, "-o", Path("hard.mp4")},
      {"render", "copy", "-i", png, "-o", png},
      {"render", "copy", "-i", png, "-o", Path("soft.png")},
      {"render", "copy", "-i", Path("soft.png"), "-o", png},
      {"render", "copy", "-i", mp4, "-o", Path("out.mp4"), "--values", mp4},
      {"render", "copy", "-i", png, "-o", Path("out.png"), "--save-preset", png},
      {"render", "copy", "-i", png, "-o", Path("out.png"), "--values", Path("out.png")},
      {"render", "copy", "-i", png, "-o", Path("out.png"), "--save-preset", Path("p2.xml"), "--then", "copy",
       "--save-preset", Path("x/../p2.xml")},
      {"render", "copy", "-i", png, "--preset", Path("p.xml"), "--save-preset", Path("p.xml"), "-o", Path("o.png")},
      {"render", "copy", "-i", Path("f_%04d.png"), "-o", Path("f_%04d.png")},
      {"render", "copy", "-i", Path("f_%04d.png"), "-o", Path("f_%d.png")},  // f_1000.png would be both
      {"render", "copy", "-i", Path("f_%04d.png"), "-o", Path("f_0002.png")},
      {"render", "copy", "-i", Path("f_0001.png"), "-o", Path("f_%04d.png")},
      {"render", "copy", "-i", png, "-o", Path("g_%d.png")},
  };
  const auto before = Snapshot();
  for (const Args& args : cases) {
    const RunResult r = Run(args);
    EXPECT_EQ(r.code, 1) << args[5] << " " << r.err;
    EXPECT_NE(r.err.find("is the same file as"), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(Snapshot(), before) << args[5];
  }
}

TEST_F(OutputSafetyTest, ASymbolicLinkAsOutputIsFollowedAndStays) {
  WritePicture("in.png", Noise(8, 8));
  WriteText("target.png", "old");
  ASSERT_EQ(symlink("target.png", Path("link.png").c_str()), 0);
  const RunResult r = Run({"render", "copy", "-i", Path("in.png"), "-o", Path("link.png"), "--keep-alpha"});
  ASSERT_EQ(r.code, 0) << r.err;
  struct stat info {};
  ASSERT_EQ(lstat(Path("link.png").c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(ReadAll("target.png").at(0).pixels, Noise(8, 8).pixels);
  // So is a frame of a sequence whose name is a link.
  WriteText("frame_target.png", "old");
  ASSERT_EQ(symlink("frame_target.png", Path("f_1.png").c_str()), 0);
  ASSERT_EQ(Run({"render", "copy", "-i", Path("in.png"), "-o", Path("f_%d.png"), "--keep-alpha"}).code, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(Path("f_1.png")));
  EXPECT_EQ(ReadAll("frame_target.png").at(0).pixels, Noise(8, 8).pixels);
  // A link to nowhere is refused, and stays as it was.
  ASSERT_EQ(symlink("missing/nothing.png", Path("dangling.png").c_str()), 0);
  const RunResult dangling = Run({"render", "copy", "-i", Path("in.png"), "-o", Path("dangling.png")});
  EXPECT_EQ(dangling.code, 1);
  EXPECT_NE(dangling.err.find("symbolic link to a missing"), std::string::npos) << dangling.err;
  EXPECT_TRUE(std::filesystem::is_symlink(Path("dangling.png")));
}

TEST_F(OutputSafetyTest, WhenOneOutputCannotBeWrittenNoneReplacesAnOlderFile) {
  WritePicture("in.png", FrameBuffer(8, 8, 0xFF204060u));
  for (const char* name : {"a.png", "v.csv", "p.xml", "s_0001.png", "s_0002.png"}) WriteText(name, "old");
  const auto before = Snapshot();
  std::string err;
  // Each file may hold at most 1500 bytes, as on a disk that fills up: the
  // pictures fit, the 300 rows of values do not.
  int code = RunChild({"render", "copy", "-i", Path("in.png"), "--frames", "300", "--values", Path("v.csv"), "-o",
                       Path("a.png"), "--save-preset", Path("p.xml")},
                      1500, &err);
  EXPECT_EQ(code, 1) << err;
  EXPECT_NE(err.find("v.csv"), std::string::npos) << err;
  EXPECT_EQ(Snapshot(), before);
  code = RunChild({"render", "copy", "-i", Path("in.png"), "--frames", "300", "--values", Path("v.csv"), "-o",
                   Path("s_%04d.png")},
                  1500, &err);
  EXPECT_EQ(code, 1) << err;
  EXPECT_EQ(Snapshot(), before);  // no new frame s_0003.png..., the old two untouched
  // Now the preset is what does not fit (a long label); the picture and the
  // one row of values do.
  code = RunChild({"render", "copy", "-i", Path("in.png"), "--set", "label=" + std::string(3000, 'x'), "--values",
                   Path("v.csv"), "-o", Path("a.png"), "--save-preset", Path("p.xml")},
                  1500, &err);
  EXPECT_EQ(code, 1) << err;
  EXPECT_NE(err.find("p.xml"), std::string::npos) << err;
  EXPECT_EQ(Snapshot(), before);
  EXPECT_TRUE(PartFiles().empty());
  // A rename that fails while the outputs are put in place (here a frame's
  // name links to another file system) undoes the renames done before it.
  struct stat shm {}, here {};
  const std::string elsewhere = "/dev/shm/nimbo-test-" + std::to_string(getpid()) + ".png";
  if (stat("/dev/shm", &shm) == 0 && stat(dir_.c_str(), &here) == 0 && shm.st_dev != here.st_dev) {
    std::ofstream(elsewhere) << "old";
    ASSERT_EQ(symlink(elsewhere.c_str(), Path("s_0003.png").c_str()), 0);
    const auto linked = Snapshot();
    code = RunChild({"render", "copy", "-i", Path("in.png"), "--frames", "3", "--values", Path("v.csv"), "-o",
                     Path("s_%04d.png")},
                    -1, &err);
    EXPECT_EQ(code, 1) << err;
    EXPECT_NE(err.find("s_0003.png"), std::string::npos) << err;
    EXPECT_EQ(Snapshot(), linked);
    EXPECT_EQ(ReadFile(elsewhere), "old");
    std::filesystem::remove(elsewhere);
    std::filesystem::remove(Path("s_0003.png"));
  }
  EXPECT_TRUE(PartFiles().empty());
  // Without the limit all of them are replaced together.
  code = RunChild({"render", "copy", "-i", Path("in.png"), "--frames", "300", "--values", Path("v.csv"), "-o",
                   Path("a.png"), "--save-preset", Path("p.xml")},
                  -1, &err);
  ASSERT_EQ(code, 0) << err;
  const auto after = Snapshot();
  EXPECT_EQ(std::count_if(after.begin(), after.end(), [](const auto& f) { return f.second == "old"; }), 2)
      << "only s_0001.png and s_0002.png keep their old text";
}

TEST_F(OutputSafetyTest, ASequenceReplacesOnlyItsOwnFramesAndOnlyWhenComplete) {
  for (int n = 1; n <= 5; ++n) WriteText("f_000" + std::to_string(n) + ".png", "old");
  MakeVideo("in.mkv", 3);
  const RunResult r = Run({"render", "copy", "-i", Path("in.mkv"), "-o", Path("f_%04d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("f_0003.png").size(), 1u);  // new pictures for 1..3
  EXPECT_EQ(ReadFile(Path("f_0004.png")), "old");  // frames beyond the render are not touched
  EXPECT_EQ(ReadFile(Path("f_0005.png")), "old");
  EXPECT_TRUE(PartFiles().empty());

  // A render that fails at its third frame (a broken input picture) leaves
  // every older frame as it was, and adds none.
  WritePicture("in_1.png", Noise(8, 8));
  WritePicture("in_2.png", Noise(8, 8));
  WriteText("in_3.png", "not a picture");
  const auto before = Snapshot();
  const RunResult broken = Run({"render", "copy", "-i", Path("in_%d.png"), "-o", Path("f_%04d.png")});
  EXPECT_EQ(broken.code, 1);
  EXPECT_NE(broken.err.find("in_3.png"), std::string::npos) << broken.err;
  EXPECT_EQ(Snapshot(), before);
  EXPECT_TRUE(PartFiles().empty());
}

TEST_F(OutputSafetyTest, RepeatedOrUselessOptionsAreNeverDroppedSilently) {
  WritePicture("in.png", Noise(8, 8));
  const std::string in = Path("in.png");
  for (const Args& args : {Args{"render", "copy", "-i", in, "-o", Path("a.png"), "-o", Path("b.png")},
                           Args{"render", "copy", "-i", in, "-o", Path("a.png"), "--output", Path("b.png")},
                           Args{"render", "copy", "-i", in, "-o", Path("a.png"), "--frames", "2", "--frames", "3"},
                           Args{"render", "copy", "-i", in, "-o", Path("a.png"), "--values", Path("a.csv"), "--values", Path("b.csv")},
                           Args{"render", "copy", "-i", in, "--preset", Path("a.xml"), "--preset", Path("b.xml"), "-o", Path("a.png")}}) {
    const RunResult r = Run(args);
    EXPECT_EQ(r.code, 2) << r.err;
    EXPECT_NE(r.err.find("is given twice"), std::string::npos) << r.err;
  }
  RunResult r = Run({"render", "copy", "-i", in, "--dyn", "Level=0.5", "--dyn", "level=0.7", "-o", Path("a.png")});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("given twice"), std::string::npos) << r.err;
  EXPECT_EQ(Files(), std::vector<std::string>{"in.png"});
  r = Run({"render", "copy", "-i", in, "--crf", "30", "--exact-size", "--allow-gaps", "-o", Path("a.png")});
  EXPECT_EQ(r.code, 0) << r.err;
  for (const char* option : {"--crf", "--exact-size", "--allow-gaps"})
    EXPECT_NE(r.err.find(std::string("warning: ") + option), std::string::npos) << option << r.err;
}

TEST_F(OutputSafetyTest, RefusalsNameTheProblemAndWhatWouldWork) {
  struct Case {
    Args args;
    int code;
    std::vector<const char*> said;
  };
  const Args gen = {"render", "gen", "--size", "64x48", "--frames", "2"};
  auto with = [&gen](Args more) {
    Args all = gen;
    all.insert(all.end(), more.begin(), more.end());
    return all;
  };
  const std::vector<Case> cases = {
      {with({"-o", Path("x.gif")}), 1, {"does not write .gif", ".mp4", "name_%04d.png"}},
      {with({"-o", Path("x.mp3")}), 1, {"does not write .mp3", ".webm"}},
      {with({"-o", Path("x.y4m")}), 1, {"does not write .y4m"}},
      {with({"-o", Path("noext")}), 1, {"no extension"}},
      {with({"-o", Path("s_%04d.gif")}), 1, {"sequences of .gif", "png"}},
      {with({"-o", "/dev/full"}), 1, {"device", "file name"}},
      {with({"-o", "-"}), 1, {"standard output", "file name"}},
      {{"render", "gen", "--size", "16384x16384", "--frames", "1", "-o", Path("big.mp4")}, 1, {"16384x16384", "smaller --size"}},
      {with({"--fps", "1e-300", "-o", Path("a.mp4")}), 2, {"0.001"}},
  };
  for (const Case& c : cases) {
    const RunResult r = Run(c.args);
    EXPECT_EQ(r.code, c.code) << r.err;
    EXPECT_EQ(r.err.find("even size"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("Invalid argument"), std::string::npos) << r.err;
    for (const char* part : c.said) EXPECT_NE(r.err.find(part), std::string::npos) << part << ": " << r.err;
    EXPECT_TRUE(Files().empty()) << r.err;
  }
  for (const Args& help : {Args{"render", "--help"}, Args{"render", "copy", "-h"}, Args{"list", "-h"},
                           Args{"info", "--help"}, Args{"demo", "-h"}, Args{"help", "render"}}) {
    const RunResult r = Run(help);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.out.rfind("usage: nimbo " + (help[0] == "help" ? help[1] : help[0]), 0), 0u) << r.out;
  }
}

TEST_F(OutputSafetyTest, OddVideoSizesArePaddedToEvenUnlessAskedToKeepThem) {
  RunResult r = Run({"render", "gen", "--size", "33x17", "--frames", "2", "-o", Path("odd.mp4")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("note: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("34x18"), std::string::npos) << r.err;
  std::vector<FrameBuffer> frames = ReadAll("odd.mp4");
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].width, 34);
  EXPECT_EQ(frames[0].height, 18);
  r = Run({"render", "gen", "--size", "33x17", "--frames", "2", "--exact-size", "-o", Path("exact.mp4")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("4:4:4"), std::string::npos) << r.err;
  frames = ReadAll("exact.mp4");
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].width, 33);
  // Even sizes and VP9 (which takes any size) say nothing.
  for (const char* out : {"even.mp4", "odd.webm"}) {
    r = Run({"render", "gen", "--size", out[0] == 'e' ? "34x18" : "33x17", "--frames", "2", "-o", Path(out)});
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << r.err;
  }
  EXPECT_EQ(ReadAll("odd.webm").at(0).width, 33);
}

TEST_F(OutputSafetyTest, MissingFramesAreNamedOrCounted) {
  for (int n : {1, 2, 3, 5, 6}) WritePicture("s_000" + std::to_string(n) + ".png", FrameBuffer(8, 8, 0xFF000000u + uint32_t(n)));
  RunResult r = Run({"render", "copy", "-i", Path("s_%04d.png"), "-o", Path("o_%d.png")});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("\"" + Path("s_0004.png") + "\""), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("--allow-gaps"), std::string::npos) << r.err;
  EXPECT_TRUE(PartFiles().empty());
  r = Run({"render", "copy", "-i", Path("s_%04d.png"), "--allow-gaps", "-o", Path("o_%d.png"), "--keep-alpha"});
  ASSERT_EQ(r.code, 0) << r.err;
  const std::vector<FrameBuffer> frames = ReadAll("o_%d.png");
  ASSERT_EQ(frames.size(), 5u);
  EXPECT_EQ(frames[3].pixels[0], 0xFF000005u);  // frame 5 follows frame 3
  EXPECT_NE(r.err.find("lacks 1 frame"), std::string::npos) << r.err;

  MakeVideo("clip.mkv", 50);
  r = Run({"render", "copy", "-i", Path("clip.mkv"), "--frames", "80", "-o", Path("long.mkv")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("long.mkv").size(), 50u);
  EXPECT_NE(r.err.find("asked for 80 frames"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("after 50"), std::string::npos) << r.err;

  // A video cut in half decodes in part: the warning says how much was read.
  MakeVideo("whole.mkv", 200, "64x48");
  const std::string whole = ReadFile(Path("whole.mkv"));
  std::ofstream(Path("cut.mkv"), std::ios::binary) << whole.substr(0, whole.size() / 2);
  r = Run({"render", "copy", "-i", Path("cut.mkv"), "-o", Path("cut_out.mkv")});
  ASSERT_EQ(r.code, 0) << r.err;
  const size_t read = ReadAll("cut_out.mkv").size();
  EXPECT_LT(read, 200u);
  EXPECT_NE(r.err.find("warning: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("after " + std::to_string(read)), std::string::npos) << r.err;

  // So does a JPEG cut short, which FFmpeg decodes in part without a word.
  r = Run({"render", "gen", "--size", "64x48", "--frames", "1", "-o", Path("whole.jpg")});
  ASSERT_EQ(r.code, 0) << r.err;
  const std::string jpeg = ReadFile(Path("whole.jpg"));
  std::ofstream(Path("cut.jpg"), std::ios::binary) << jpeg.substr(0, jpeg.size() - 20);
  r = Run({"render", "copy", "-i", Path("whole.jpg"), "-o", Path("from_whole.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_TRUE(r.err.empty()) << r.err;
  r = Run({"render", "copy", "-i", Path("cut.jpg"), "-o", Path("from_cut.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("warning: \"" + Path("cut.jpg") + "\" is cut short: its " + std::to_string(jpeg.size() - 20) +
                       " bytes"),
            std::string::npos)
      << r.err;
}

}  // namespace
}  // namespace nimbo::host
