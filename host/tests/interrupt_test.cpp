// Real signals sent to a real `nimbo render`: each of SIGINT, SIGTERM,
// SIGHUP and SIGPIPE ends it with 128 + the signal's number, leaves no
// temporary file and no new output, and leaves every older output as it
// was; a blocking input (a FIFO) does not keep it from ending; leftovers of
// a killed run do not trouble the next one.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

using Args = std::vector<std::string>;

class InterruptTest : public NimboTest {
 protected:
  // Whether process `pid` holds `path` open.
  static bool HasOpen(pid_t pid, const std::string& path) {
    std::error_code error;
    for (const auto& fd : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
      if (std::filesystem::read_symlink(fd.path(), error) == path) return true;
    }
    return false;
  }
  // A render that goes on until it is stopped.
  Args Endless(const std::string& output) const {
    return {"render", "gen", "--size", "32x32", "--frames", "100000000", "-o", Path(output)};
  }
  // Waits until the running child has a temporary output (holding at least
  // `frames` pictures when it is a sequence's folder).
  bool WaitForPart(size_t frames = 0) const {
    return WaitUntil([&] {
      for (const std::string& part : PartFiles()) {
        if (!std::filesystem::is_directory(Path(part))) return true;
        const auto count = std::distance(std::filesystem::directory_iterator(Path(part)),
                                         std::filesystem::directory_iterator());
        if (size_t(count) >= frames) return true;
      }
      return false;
    });
  }
};

TEST_F(InterruptTest, EachSignalCleansUpAndExitsWith128PlusItsNumber) {
  std::ofstream(Path("out.mp4")) << "older video";
  for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    const pid_t pid = Spawn(Endless("out.mp4"));
    ASSERT_TRUE(WaitForPart()) << strsignal(s);
    kill(pid, s);
    EXPECT_EQ(Reap(pid), 128 + s) << strsignal(s) << ": " << ReadFile(Path(".stderr"));
    EXPECT_EQ(ReadFile(Path("out.mp4")), "older video");
    EXPECT_TRUE(PartFiles().empty()) << strsignal(s);
    EXPECT_NE(ReadFile(Path(".stderr")).find("interrupted"), std::string::npos);
  }
}

TEST_F(InterruptTest, AnInterruptedSequenceLeavesTheOlderFramesAndNoNewOne) {
  for (const char* name : {"f_0001.png", "f_0002.png", "f_0003.png"}) std::ofstream(Path(name)) << "older frame";
  const pid_t pid = Spawn(Endless("f_%04d.png"));
  ASSERT_TRUE(WaitForPart(10));
  // Ten frames are done, yet none has its final name.
  EXPECT_FALSE(std::filesystem::exists(Path("f_0004.png")));
  EXPECT_EQ(ReadFile(Path("f_0001.png")), "older frame");
  kill(pid, SIGINT);
  EXPECT_EQ(Reap(pid), 130);
  EXPECT_EQ(Files(), (std::vector<std::string>{"f_0001.png", "f_0002.png", "f_0003.png"}));
  for (const std::string& name : Files()) EXPECT_EQ(ReadFile(Path(name)), "older frame");
}

TEST_F(InterruptTest, ABlockingInputEndsOnASignalAndIsReadWhenItIsWritten) {
  ASSERT_EQ(mkfifo(Path("pipe.png").c_str(), 0644), 0);
  for (int s : {SIGINT, SIGTERM}) {
    const pid_t pid = Spawn({"render", "copy", "-i", Path("pipe.png"), "-o", Path("out.png")});
    // No one writes to the pipe: nimbo opens it and waits on it until the signal.
    ASSERT_TRUE(WaitUntil([&] { return HasOpen(pid, Path("pipe.png")); }));
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, WNOHANG), 0) << "ended without a writer";
    kill(pid, s);
    bool ended = false;
    int code = -1;
    ASSERT_TRUE(WaitUntil([&] { return (ended = waitpid(pid, &status, WNOHANG) == pid); }, 5)) << strsignal(s);
    if (ended) code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    EXPECT_EQ(code, 128 + s);
    EXPECT_EQ(Files(), std::vector<std::string>{"pipe.png"});
  }
  // A preset is read whole by a reader that cannot be interrupted: a pipe is
  // refused there instead of waited on.
  WritePicture("in.png", Noise(8, 8));
  const RunResult preset = Run({"render", "copy", "-i", Path("in.png"), "--preset", Path("pipe.png"), "-o", Path("o.png")});
  EXPECT_EQ(preset.code, 1);
  EXPECT_NE(preset.err.find("not a file"), std::string::npos) << preset.err;
  // With a writer, the picture comes through the pipe.
  const pid_t pid = Spawn({"render", "copy", "-i", Path("pipe.png"), "-o", Path("out.png"), "--keep-alpha"});
  {
    std::ofstream pipe(Path("pipe.png"), std::ios::binary);
    pipe << ReadFile(Path("in.png"));
  }
  ASSERT_EQ(Reap(pid), 0) << ReadFile(Path(".stderr"));
  EXPECT_EQ(ReadAll("out.png").at(0).pixels, Noise(8, 8).pixels);
}

TEST_F(InterruptTest, LeftoversOfADeadRunAreRemovedAndThoseOfALiveOneKept) {
  pid_t dead = 4000000;  // the highest pids are seldom in use; find one that is not
  while (kill(dead, 0) == 0 || errno != ESRCH) --dead;
  const std::string stale_file = ".out.png.nimbo-" + std::to_string(dead) + "-0.part";
  const std::string stale_folder = ".s_%02d.png.nimbo-" + std::to_string(dead) + "-0.part";
  const std::string live = ".out.png.nimbo-" + std::to_string(getpid()) + "-0.part";
  std::ofstream(Path(stale_file)) << "x";
  std::filesystem::create_directory(Path(stale_folder));
  std::ofstream(Path(stale_folder + "/s_01.png")) << "x";
  std::ofstream(Path(live)) << "x";
  WritePicture("in.png", Noise(8, 8));
  RunResult r = Run({"render", "copy", "-i", Path("in.png"), "-o", Path("out.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  r = Run({"render", "copy", "-i", Path("in.png"), "-o", Path("s_%02d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(Files(), (std::vector<std::string>{live, "in.png", "out.png", "s_01.png"}));
}

}  // namespace
}  // namespace nimbo::host
