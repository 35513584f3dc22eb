// End-to-end runs of `nimbo formula`: values, compiled words and error
// positions as --json prints them, the program dialect, and bad input of
// every kind ending in an error, never a crash.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace nimbo::host {
namespace {

struct RunResult {
  int code = -1;  // exit code; -1 when the program died of a signal
  std::string out;
  std::string err;
};

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs `nimbo formula ARGS...` with the arguments passed as they are (no
// shell), so any byte reaches the program.
RunResult Formula(const std::vector<std::string>& args, const char* locale = nullptr) {
  const std::string dir = std::filesystem::temp_directory_path() / ("nimbo-formula-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  const std::string out = dir + "/out", err = dir + "/err";
  const pid_t pid = fork();
  if (pid == 0) {
    if (!freopen(out.c_str(), "w", stdout) || !freopen(err.c_str(), "w", stderr)) _exit(127);
    if (locale) setenv("LC_ALL", locale, 1);
    std::vector<char*> argv = {const_cast<char*>(NIMBO_PROGRAM), const_cast<char*>("formula")};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(NIMBO_PROGRAM, argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  RunResult r;
  r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  r.out = ReadAll(out);
  r.err = ReadAll(err);
  std::filesystem::remove_all(dir);
  return r;
}

TEST(NimboFormula, PrintsValuesAndCompiledWords) {
  const struct {
    std::vector<std::string> args;
    const char* out;
  } cases[] = {
      {{"-2^2"}, "4\n"},
      {{"2^3^2"}, "64\n"},
      {{"--json", "10-2-3"}, "{\"ok\": true, \"value\": 5, \"code\": [68, 1084227584, 0]}\n"},
      {{"--json", "2*pi"}, "{\"ok\": true, \"value\": 6.28318548, \"code\": [68, 1073741824, 86, 259, 42, 0]}\n"},
      {{"--json", "(a-0.5)*100", "--var", "a=0.25"},
       "{\"ok\": true, \"value\": -25, \"code\": [86, 263, 68, 1056964608, 45, 68, 1120403456, 42, 0]}\n"},
      {{"--json", "1/3"}, "{\"ok\": true, \"value\": 0.333333343, \"code\": [68, 1051372203, 0]}\n"},
      {{"--json", ""}, "{\"ok\": true, \"value\": 0, \"code\": [68, 0, 0]}\n"},
      {{"--json", "sqrt(0-1)"}, "{\"ok\": true, \"value\": \"nan\", \"code\": [68, 4290772992, 0]}\n"},
      {{"--json", "0-1/0"}, "{\"ok\": true, \"value\": \"-inf\", \"code\": [68, 4286578688, 0]}\n"},
      // The first draw of a fresh process comes from seed 1: 41 / 32767.
      {{"--json", "rand()"}, "{\"ok\": true, \"value\": 0.00125125889, \"code\": [68, 983826760, 0]}\n"},
      {{"--json", "--allow", "", "screenw*t", "--var", "screenw=640", "--var", "T=0.5"},
       "{\"ok\": true, \"value\": 320, \"code\": [86, 260, 86, 262, 42, 0]}\n"},
      // Undeclared --var names become user variables, codes 276 on.
      {{"--json", "--var", "Speed=3", "--var", "my-size=2", "speed*my_size+i", "--var", "i=1"},
       "{\"ok\": true, \"value\": 7, \"code\": [86, 276, 86, 277, 42, 86, 271, 43, 0]}\n"},
  };
  for (const auto& c : cases) {
    const RunResult r = Formula(c.args);
    EXPECT_EQ(r.code, 0) << c.args.back() << r.err;
    EXPECT_EQ(r.out, c.out) << c.args.back();
  }
}

TEST(NimboFormula, ReportsWhereAFormulaFails) {
  const struct {
    std::vector<std::string> args;
    const char* out;
  } cases[] = {
      {{"--json", "2*-3"}, "{\"ok\": false, \"position\": 2}\n"},
      {{"--json", "sin(1,2)"}, "{\"ok\": false, \"position\": 6}\n"},
      {{"--json", "rand(1)"}, "{\"ok\": false, \"position\": 5}\n"},
      {{"--json", "imax + 2 *"}, "{\"ok\": false, \"position\": 4}\n"},
      {{"--json", "1e5"}, "{\"ok\": false, \"position\": -1, \"name\": \"e5\"}\n"},
      {{"--json", "imaxx"}, "{\"ok\": false, \"position\": -1, \"name\": \"imaxx\"}\n"},
      {{"--json", "--allow", "i,j", "b"}, "{\"ok\": false, \"position\": -1, \"name\": \"b\"}\n"},
      {{"--json", std::string(999, '(')}, "{\"ok\": false, \"position\": 998}\n"},
  };
  for (const auto& c : cases) {
    const RunResult r = Formula(c.args);
    EXPECT_EQ(r.code, 1) << c.args.back();
    EXPECT_EQ(r.out, c.out) << c.args.back();
  }
  const RunResult plain = Formula({"2*-3"});
  EXPECT_EQ(plain.code, 1);
  EXPECT_EQ(plain.out, "");
  EXPECT_NE(plain.err.find("position 2"), std::string::npos) << plain.err;
  EXPECT_EQ(std::count(plain.err.begin(), plain.err.end(), '\n'), 1) << "one line";
}

TEST(NimboFormula, RunsPrograms) {
  const std::string program = "R = X*X + y*y\r\nu = R + T\nFUN = sqrt(r) - size";
  RunResult r = Formula({"--program", "--result", "FUN", "--outputs", "u,nx", "--var", "X=3", "--var", "Y=4",
                         "--var", "T=1", "--var", "size=1", "--json", program});
  EXPECT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out,
            "{\"ok\": true, \"value\": 4, \"code\": [86, 261, 70, 7, 86, 260, 45, 0], "
            "\"outputs\": {\"u\": 26, \"nx\": 25}}\n");
  r = Formula({"--program", "--result", "FUN", "--json", "A=1\nFUN=A\nB=2"});
  EXPECT_EQ(r.out, "{\"ok\": false, \"line\": null}\n");
  EXPECT_EQ(r.code, 1);
  r = Formula({"--program", "--result", "FUN", "--json", "A=1\n\nB=2*-1\nFUN=A"});
  EXPECT_EQ(r.out, "{\"ok\": false, \"line\": 2}\n");
  r = Formula({"--program", "--json", "A=1E5+1E-5*0"});
  EXPECT_EQ(r.out, "{\"ok\": true, \"value\": 0, \"code\": [], \"outputs\": {}}\n") << "no result line";
}

TEST(NimboFormula, BadInputIsAnErrorNeverACrash) {
  // Every byte from 1 to 255 reaches the program, in groups of 32 and all
  // together, in both dialects (each byte alone is the library tests' job).
  std::vector<std::string> texts;
  std::string all;
  for (int c = 1; c < 256; ++c) all.push_back(char(c));
  texts.push_back(all);
  for (int from = 1; from < 256; from += 32) texts.push_back("sin(" + all.substr(from - 1, 32) + ")");
  for (const std::string& text : texts) {
    const RunResult f = Formula({"--json", text});
    EXPECT_EQ(f.code, 1) << text;
    EXPECT_EQ(f.out.rfind("{\"ok\": false", 0), 0u) << text;
    const RunResult p = Formula({"--program", "--json", "A=" + text});
    EXPECT_EQ(p.code, 1) << text;
    EXPECT_EQ(p.out.rfind("{\"ok\": false", 0), 0u) << text;
  }
  const RunResult too_long = Formula({std::string(70000, '1')});
  EXPECT_EQ(too_long.code, 1);
  EXPECT_NE(too_long.err.find("65536"), std::string::npos) << "the limit is named";
  EXPECT_EQ(Formula({"--var", std::string(5000, 'v') + "=1", "1"}).code, 0) << "a long user-variable name is a name";
  EXPECT_EQ(Formula({"--var", "sin=1", "1"}).code, 1) << "reserved";
  EXPECT_EQ(Formula({"--var", "q=1", "1"}).code, 1) << "too short";
  EXPECT_EQ(Formula({"--var", "speed=fast", "1"}).code, 1);
  EXPECT_EQ(Formula({"--var", "speed", "1"}).code, 1);
  EXPECT_EQ(Formula({"--bogus", "1"}).code, 2);
  EXPECT_EQ(Formula({}).code, 2);
  // Numbers read with '.' whatever the locale.
  EXPECT_EQ(Formula({"1.5*2"}, "de_DE.UTF-8").out, "3\n");
  EXPECT_EQ(Formula({"-h"}).out.rfind("nimbo formula", 0), 0u) << "-h alone is help";
  EXPECT_EQ(Formula({"--", "-h"}).out, "-0\n") << "after -- it is the formula minus h";
}

}  // namespace
}  // namespace nimbo::host
