// `--action NAME=FILE`: an effect's file commands run from the command line,
// through the fixture's Copy effect, whose "load-tint" and "save-tint" show
// when they ran (before the first frame, after the last) and fail the way an
// effect's dialog does.
#include "nimbo_run.h"

namespace nimbo::host {
namespace {

TEST_F(NimboTest, InfoListsTheFileCommands) {
  RunResult r = Run({"info", "copy"});
  ASSERT_EQ(r.code, 0) << r.err;
  const size_t heading = r.out.find("file commands (--action NAME=FILE):");
  ASSERT_NE(heading, std::string::npos) << r.out;
  EXPECT_NE(r.out.find("load-tint", heading), std::string::npos);
  EXPECT_NE(r.out.find("save-tint", heading), std::string::npos);
  r = Run({"info", "copy", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("\"actions\": [\n    {\"name\": \"load-tint\", \"description\": \"reads the tint from a text file\"},"
                       "\n    {\"name\": \"save-tint\""),
            std::string::npos)
      << r.out;
  r = Run({"info", "pair", "--json"});
  EXPECT_NE(r.out.find("\"actions\": []"), std::string::npos) << r.out;
}

TEST_F(NimboTest, LoadsRunBeforeTheFirstFrameAndSavesAfterTheLast) {
  WritePicture("in.png", FrameBuffer(4, 4, 0xFF000000u));
  std::ofstream(Path("tint.txt")) << "255\n";
  const RunResult r = Run({"render", "copy", "-i", Path("in.png"), "--frames", "3", "--action",
                           "load-tint=" + Path("tint.txt"), "--action", "save-tint=" + Path("saved.txt"), "-o",
                           Path("out_%02d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  // The first frame already has the loaded tint; the save saw all three.
  EXPECT_EQ(ReadAll("out_01.png").at(0).pixels[0] & 0xFFFFFFu, 0x0000FFu);
  EXPECT_EQ(ReadFile(Path("saved.txt")), "255 3\n");
}

TEST_F(NimboTest, AFailingCommandIsOneErrorLineAndLeavesNoFile) {
  WritePicture("in.png", FrameBuffer(4, 4, 0xFF000000u));
  std::ofstream(Path("bad.txt")) << "not a number";
  const std::string in = Path("in.png"), out = Path("out.png");
  struct Case {
    std::vector<std::string> args;
    int code;
    const char* message;
  };
  const std::vector<Case> cases = {
      {{"--action", "load-tint=" + Path("missing.txt")}, 1, "Copy --action load-tint="},
      {{"--action", "load-tint=" + Path("bad.txt")}, 1, ": Couldn't open file"},
      {{"--action", "save-tint=" + Path("no/such/dir/t.txt")}, 1, "cannot write"},
      {{"--action", "load-nothing=" + Path("bad.txt")}, 1, "has no file command \"load-nothing\" (its commands: "
                                                           "load-tint, save-tint)"},
      {{"--action", "save-tint=" + in}, 1, "in.png"},
      {{"--action", "save-tint=" + out}, 1, "out.png"},
      {{"--action", "tint=" + Path("x.txt")}, 2, "starts with load- or save-"},
      {{"--action", "load-tint"}, 2, "expected NAME=FILE"},
      {{"--action", "save-tint="}, 2, "names no file"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args{"render", "copy", "-i", in, "-o", out};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const RunResult r = Run(args);
    EXPECT_EQ(r.code, c.code) << c.message << "\n" << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(Files(), (std::vector<std::string>{"bad.txt", "in.png"})) << c.message;
  }
}

// A save replaces an older file of its name only when the whole run
// succeeds: a load that fails after the save was claimed leaves it alone.
TEST_F(NimboTest, ASaveReplacesAnOlderFileOnlyWhenTheRunSucceeds) {
  WritePicture("in.png", FrameBuffer(4, 4, 0xFF000000u));
  std::ofstream(Path("saved.txt")) << "older";
  std::ofstream(Path("bad.txt")) << "not a number";
  RunResult r = Run({"render", "copy", "-i", Path("in.png"), "--action", "save-tint=" + Path("saved.txt"),
                     "--action", "load-tint=" + Path("bad.txt"), "-o", Path("out.png")});
  EXPECT_EQ(r.code, 1);
  EXPECT_FALSE(std::filesystem::exists(Path("out.png")));
  EXPECT_EQ(ReadFile(Path("saved.txt")), "older");
  r = Run({"render", "copy", "-i", Path("in.png"), "--action", "save-tint=" + Path("saved.txt"), "-o",
           Path("out.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadFile(Path("saved.txt")), "0 1\n");
  EXPECT_EQ(Files(), (std::vector<std::string>{"bad.txt", "in.png", "out.png", "saved.txt"}));
}

}  // namespace
}  // namespace nimbo::host
