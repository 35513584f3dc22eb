// What the end-to-end tests of the `nimbo` program share: a scratch folder
// per test, running the program (to its end, or as a child process to send
// signals to), and writing and reading pictures in the scratch folder.
#pragma once

#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "scratch_folder_test.h"
#include "media/media_input.h"
#include "media/media_output.h"

namespace nimbo::host {

#if defined(__SANITIZE_ADDRESS__)
#define NIMBO_TESTS_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define NIMBO_TESTS_UNDER_ASAN 1
#endif
#endif

#ifdef NIMBO_TESTS_UNDER_ASAN
// The `nimbo` children of a sanitizer build run without the leak check at
// exit: its tracer now and then crashes on a process whose driver threads
// are still about ("Tracer caught signal 11 ... LeakSanitizer has
// encountered a fatal error"), failing a run that did nothing wrong. Memory
// errors still stop a child, and the in-process tests keep the leak check:
// this process read its own options before this line ran.
inline const bool kChildrenSkipLeakCheck = [] {
  const char* asan = std::getenv("ASAN_OPTIONS");
  setenv("ASAN_OPTIONS", (std::string(asan ? asan : "") + ":detect_leaks=0").c_str(), 1);
  return true;
}();
#endif

struct RunResult {
  int code = -1;
  std::string out;
  std::string err;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class NimboTest : public ScratchFolderTest {
 protected:

  // Runs nimbo with `args` (shell-quoted here), with the fixture package
  // unless `real_package`.
  RunResult Run(const std::vector<std::string>& args, bool real_package = false) const {
    // Common options go after the command word.
    std::string command = NIMBO_PROGRAM;
    bool first = true;
    for (const std::string& a : args) {
      command += " '" + a + "'";
      if (first) command += std::string(" --plugins ") + (real_package ? NIMBO_PLUGINS_DIR : NIMBO_FIXTURE_DIR);
      first = false;
    }
    command += " >" + Path(".stdout") + " 2>" + Path(".stderr");
    RunResult r;
    const int status = std::system(command.c_str());
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = ReadFile(Path(".stdout"));
    r.err = ReadFile(Path(".stderr"));
    std::filesystem::remove(Path(".stdout"));
    std::filesystem::remove(Path(".stderr"));
    return r;
  }
  // The scratch folder's files, without the child's .stdout and .stderr.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir_)) {
      if (e.path().filename() != ".stdout" && e.path().filename() != ".stderr") names.push_back(e.path().filename());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  void WritePicture(const std::string& name, const FrameBuffer& picture) const {
    auto out = CreateOutput(Path(name), picture.width, picture.height, OutputOptions{true, 18, 25});
    out->Write(picture);
    out->Finish();
  }
  std::vector<FrameBuffer> ReadAll(const std::string& name) const {
    auto in = OpenMedia(Path(name));
    std::vector<FrameBuffer> frames;
    FrameBuffer f;
    while (in->ReadFrame(f, in->Width(), in->Height())) frames.push_back(f);
    return frames;
  }
  static FrameBuffer Noise(int32_t w, int32_t h) {
    FrameBuffer f(w, h);
    uint32_t x = 12345;
    for (uint32_t& p : f.pixels) {
      x = x * 1664525u + 1013904223u;
      p = x;
    }
    return f;
  }

  // Starts nimbo with `args` (and the fixture package) as a child process,
  // its output into files of the scratch folder.
  // With `file_size_limit` >= 0 no file the child writes may grow beyond
  // that many bytes (RLIMIT_FSIZE): a write past it fails as on a full disk.
  pid_t Spawn(const std::vector<std::string>& args, long file_size_limit = -1) const {
    std::vector<std::string> all{NIMBO_PROGRAM, args.at(0), "--plugins", NIMBO_FIXTURE_DIR};
    all.insert(all.end(), args.begin() + 1, args.end());
    const std::string out = Path(".stdout"), err = Path(".stderr");
    const pid_t pid = fork();
    if (pid == 0) {
      // Only async-signal-safe calls between fork and exec.
      const int out_fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      const int err_fd = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (out_fd < 0 || err_fd < 0 || dup2(out_fd, 1) < 0 || dup2(err_fd, 2) < 0) _exit(126);
      if (file_size_limit >= 0) {
        signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG instead of killing
        const rlimit limit{rlim_t(file_size_limit), rlim_t(file_size_limit)};
        setrlimit(RLIMIT_FSIZE, &limit);
      }
      std::vector<char*> argv;
      for (std::string& a : all) argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    return pid;
  }
  // Waits for `pid`; answers its exit code (-signal when a signal killed it)
  // and, in `usage`, what it used.
  static int Reap(pid_t pid, rusage* usage = nullptr) {
    int status = 0;
    rusage ignored{};
    wait4(pid, &status, 0, usage ? usage : &ignored);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  // Spawn, then Reap, with the child's stderr in `err`.
  int RunChild(const std::vector<std::string>& args, long file_size_limit, std::string* err) const {
    const int code = Reap(Spawn(args, file_size_limit));
    *err = ReadFile(Path(".stderr"));
    return code;
  }
  // Every regular file of the scratch folder (links followed) with its
  // bytes, to show that a run changed nothing.
  std::map<std::string, std::string> Snapshot() const {
    std::map<std::string, std::string> files;
    for (const std::string& name : Files()) {
      if (std::filesystem::is_regular_file(Path(name))) files[name] = ReadFile(Path(name));
    }
    return files;
  }
  // Polls `ready` every few milliseconds for up to `seconds`.
  static bool WaitUntil(const std::function<bool()>& ready, double seconds = 20) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
      if (ready()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
  }
  // Files of the scratch folder whose names end with ".part" (temporary
  // files and folders).
  std::vector<std::string> PartFiles() const {
    std::vector<std::string> parts;
    for (const std::string& name : Files()) {
      if (name.size() > 5 && name.compare(name.size() - 5, 5, ".part") == 0) parts.push_back(name);
    }
    return parts;
  }
};


}  // namespace nimbo::host
