// Unit tests of the host runtime's parsers and editors: keyframe tracks,
// settings documents and --set values, the command line, frame patterns and
// pending output files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cli/cli_args.h"
#include "runtime/effect_host.h"
#include "media/ffmpeg_util.h"
#include "media/frame_buffer.h"
#include "runtime/keyframes.h"
#include "runtime/output_aliases.h"
#include "runtime/output_commit.h"
#include "runtime/pending_file.h"
#include "runtime/settings_edit.h"

namespace nimbo::host {
namespace {

TEST(Keyframes, InterpolatesLinearlyAndHoldsOutsideTheKeys) {
  const KeyframeTrack track = ParseKeyframeTrack("Level=0@1,1@2,0.5@4");
  EXPECT_EQ(track.name, "Level");
  EXPECT_DOUBLE_EQ(track.ValueAt(0.0), 0.0);
  EXPECT_DOUBLE_EQ(track.ValueAt(1.5), 0.5);
  EXPECT_DOUBLE_EQ(track.ValueAt(3.0), 0.75);
  EXPECT_DOUBLE_EQ(track.ValueAt(9.0), 0.5);
  EXPECT_DOUBLE_EQ(track.Minimum(), 0.0);
  EXPECT_DOUBLE_EQ(track.Maximum(), 1.0);
  EXPECT_DOUBLE_EQ(ParseKeyframeTrack("Resonance Q=3.5").ValueAt(100), 3.5);
  EXPECT_DOUBLE_EQ(ParseKeyframeTrack("Invert=on").ValueAt(0), 1.0);
}

TEST(Keyframes, RejectsMalformedTracks) {
  for (const char* bad : {"Level", "=1", "Level=", "Level=x", "Level=1@x", "Level=1@-1", "Level=1,2",
                          "Level=1@2,2@1", "Level=1@1,2@1", "Level=nan"}) {
    EXPECT_THROW(ParseKeyframeTrack(bad), HostError) << bad;
  }
}

const char* const kDocument =
    "<Settings>\r\n<ConfigData>\r\n"
    "<data name=\"radius\" type=\"int\">3</data>\r\n"
    "<data name=\"gain\" type=\"float\">0.500000</data>\r\n"
    "<data name=\"title\" type=\"string\">a &lt;b&gt; &amp; c</data>\r\n"
    "<data name=\"file\" type=\"path\"/>\r\n"
    "</ConfigData>\r\n</Settings>\r\n";

TEST(SettingsEdit, ReadsEntriesInOrderAndRebuildsTheSameValues) {
  const std::vector<SettingEntry> entries = ReadSettingEntries(kDocument);
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].key, "radius");
  EXPECT_EQ(entries[1].type, "float");
  EXPECT_EQ(entries[2].value, "a <b> & c");
  EXPECT_EQ(entries[3].value, "");
  const std::vector<SettingEntry> again = ReadSettingEntries(BuildSettingsDocument(entries));
  ASSERT_EQ(again.size(), entries.size());
  for (size_t i = 0; i < entries.size(); ++i) {
    EXPECT_EQ(again[i].key, entries[i].key);
    EXPECT_EQ(again[i].type, entries[i].type);
    EXPECT_EQ(again[i].value, entries[i].value);
  }
  EXPECT_TRUE(ReadSettingEntries("<Other/>").empty());
  EXPECT_TRUE(ReadSettingEntries("not xml <").empty());
}

TEST(SettingsEdit, ParsesValuesByTheStoredType) {
  EXPECT_EQ(ParseSettingValue("k", "int", "42"), "42");
  EXPECT_EQ(ParseSettingValue("k", "int", "-7"), "-7");
  EXPECT_EQ(ParseSettingValue("k", "int", "0x00FF00"), "65280");
  EXPECT_EQ(ParseSettingValue("k", "int", "#0000ff"), "255");
  EXPECT_EQ(ParseSettingValue("k", "int", "0xFFFFFFFF"), "-1");
  EXPECT_EQ(ParseSettingValue("k", "float", "0.1234567"), "0.123457");
  EXPECT_EQ(ParseSettingValue("k", "float", "2"), "2.000000");
  EXPECT_EQ(ParseSettingValue("k", "string", "x=y, z"), "x=y, z");
  for (const char* bad : {"", "1.5", "abc", "12x", "99999999999", "0x1FFFFFFFF"}) {
    EXPECT_THROW(ParseSettingValue("k", "int", bad), HostError) << bad;
  }
  for (const char* bad : {"", "abc", "1.0.0", "inf", "nan", "1e40"}) {
    EXPECT_THROW(ParseSettingValue("k", "float", bad), HostError) << bad;
  }
}

// One check, two readings: the command line's (all of the text one number,
// hex for ints) and the store's (a leading number, what a preset holds).
TEST(SettingChecks, JudgeBothReadingsAgainstTheRange) {
  const ValueRange hue{-180, 180};
  struct Case {
    bool typed, is_int;
    const char* text;
    std::optional<ValueRange> range;
    ValueFault fault;
    double value;
  };
  const Case cases[] = {
      {true, false, "1000", hue, ValueFault::kOutOfRange, 180},
      {true, false, "-inf", hue, ValueFault::kOutOfRange, -180},
      {true, false, "180", hue, ValueFault::kNone, 180},
      {true, false, "nan", hue, ValueFault::kNotANumber, 0},
      {true, false, "1e39", std::nullopt, ValueFault::kNotFinite, 0},
      {true, false, "1e-400", std::nullopt, ValueFault::kNone, 0},
      {true, false, "12x", hue, ValueFault::kUnparsable, 0},
      {true, true, "0xFFFFFFFF", ValueRange{0, 0xFFFFFF}, ValueFault::kOutOfRange, 0},  // the signed word -1
      {true, true, "0xFFFFFFFF", std::nullopt, ValueFault::kNone, -1},
      {true, true, "99999999999", std::nullopt, ValueFault::kOutOfRange, INT32_MAX},
      {true, true, "1.5", std::nullopt, ValueFault::kUnparsable, 0},
      {false, true, "12abc", ValueRange{1, 32}, ValueFault::kNone, 12},
      {false, true, "3.750000", ValueRange{1, 32}, ValueFault::kNone, 3},
      {false, true, "-5", ValueRange{1, 32}, ValueFault::kOutOfRange, 1},
      {false, true, "abc", ValueRange{1, 32}, ValueFault::kUnparsable, 0},
      {false, false, "inf", std::nullopt, ValueFault::kNotFinite, 0},
      {false, false, "1e39", ValueRange{0, 4}, ValueFault::kOutOfRange, 4},
      {false, false, "NAN", ValueRange{0, 4}, ValueFault::kNotANumber, 0},
  };
  for (const Case& c : cases) {
    const CheckedNumber got = c.typed ? CheckTypedNumber(c.is_int, c.text, c.range)
                                      : CheckStoredNumber(c.is_int, c.text, c.range);
    EXPECT_EQ(got.fault, c.fault) << c.text;
    if (c.fault == ValueFault::kNone || c.fault == ValueFault::kOutOfRange) {
      EXPECT_EQ(got.value, c.value) << c.text;
    }
  }
  EXPECT_EQ(RangeText({0, 16777215}), "0 .. 16777215");
  const SettingRecord text{"k", orrery::SettingType::kString, 0, 10, ""}, empty{"k", orrery::SettingType::kInt, 0, 0, ""};
  EXPECT_FALSE(RangeOf(&text) || RangeOf(&empty) || RangeOf(nullptr));
  EXPECT_THROW(ParseSettingValue("hue", "float", "181", hue), HostError);
}

TEST(SettingsEdit, UnknownKeyErrorListsTheValidKeys) {
  std::vector<SettingEntry> entries = ReadSettingEntries(kDocument);
  ApplySetting(entries, "radius=9", "Blur");
  EXPECT_EQ(entries[0].value, "9");
  ApplySetting(entries, "title=x=1", "Blur");
  EXPECT_EQ(entries[2].value, "x=1");
  try {
    ApplySetting(entries, "radios=1", "Blur");
    FAIL() << "no error";
  } catch (const HostError& e) {
    EXPECT_NE(std::string(e.what()).find("valid keys: radius, gain, title, file"), std::string::npos) << e.what();
  }
  EXPECT_THROW(ApplySetting(entries, "gain=loud", "Blur"), HostError);
  EXPECT_THROW(ApplySetting(entries, "noequals", "Blur"), HostError);
}

TEST(SettingsEdit, DynVarValuesRoundTripBesideTheSettings) {
  const std::string text = AddDynVarValues(kDocument, {{"Level", "float", "0.750000"}, {"Invert", "bool", "1"}});
  const std::vector<DynVarValue> values = ReadDynVarValues(text);
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].name, "Level");
  EXPECT_EQ(values[0].value, "0.750000");
  EXPECT_EQ(values[1].type, "bool");
  EXPECT_EQ(ReadSettingEntries(text).size(), 4u);  // the settings are untouched
}

TEST(CommandLine, ParsesARenderChainWithOptionsPerEffect) {
  const CommandLine cl = ParseCommandLine({"render", "LowQ", "-i", "a.mp4", "--set", "k=1", "--dyn", "x=1",
                                           "--then", "ChromaKeyPRO", "-i", "bg.png", "--preset", "p.xml", "-o",
                                           "out.mkv", "--size=640x360", "--frames", "10", "--fps", "29.97",
                                           "--keep-alpha", "--values", "v.csv", "--quiet"});
  ASSERT_EQ(cl.kind, CommandKind::kRender);
  ASSERT_EQ(cl.render.stages.size(), 2u);
  EXPECT_EQ(cl.render.stages[0].effect, "LowQ");
  EXPECT_EQ(cl.render.stages[0].inputs, std::vector<std::string>{"a.mp4"});
  EXPECT_EQ(cl.render.stages[0].sets, std::vector<std::string>{"k=1"});
  EXPECT_EQ(cl.render.stages[1].effect, "ChromaKeyPRO");
  EXPECT_EQ(cl.render.stages[1].inputs, std::vector<std::string>{"bg.png"});
  EXPECT_EQ(cl.render.stages[1].preset, "p.xml");
  EXPECT_EQ(cl.render.output, "out.mkv");
  EXPECT_EQ(cl.render.width, 640);
  EXPECT_EQ(cl.render.height, 360);
  EXPECT_EQ(cl.render.frames, 10);
  EXPECT_DOUBLE_EQ(cl.render.fps, 29.97);
  EXPECT_TRUE(cl.render.keep_alpha);
  EXPECT_TRUE(cl.quiet);
}

TEST(CommandLine, HelpOnACommandUnlessItIsAnOptionsValue) {
  using Args = std::vector<std::string>;
  for (const Args& help : {Args{"render", "-h"}, Args{"render", "X", "-i", "a", "--help"}, Args{"info", "-h"},
                           Args{"help", "demo"}, Args{"--help", "list"}}) {
    const CommandLine cl = ParseCommandLine(help);
    EXPECT_EQ(cl.kind, CommandKind::kHelp);
    EXPECT_NE(cl.help_topic, "") << help[0];
  }
  const CommandLine cl = ParseCommandLine({"render", "X", "-i", "-h", "-o", "out.png"});
  EXPECT_EQ(cl.kind, CommandKind::kRender);
  EXPECT_EQ(cl.render.stages[0].inputs, std::vector<std::string>{"-h"});
  EXPECT_THROW(ParseCommandLine({"help", "frobnicate"}), UsageError);
}

TEST(CommandLine, RejectsMalformedArguments) {
  using Args = std::vector<std::string>;
  for (const Args& bad : {Args{"render"}, Args{"render", "X"}, Args{"render", "X", "-o"},
                          Args{"render", "X", "-o", "a.png", "--size", "10"},
                          Args{"render", "X", "-o", "a.png", "--size", "0x10"},
                          Args{"render", "X", "-o", "a.png", "--frames", "0"},
                          Args{"render", "X", "-o", "a.png", "--fps", "-1"},
                          Args{"render", "X", "-o", "a.png", "--bogus"}, Args{"render", "-i", "a", "X"},
                          Args{"info"}, Args{"list", "extra"}, Args{"frobnicate"},
                          Args{"render", "X", "-o", "a.png", "--keep-alpha=1"}}) {
    EXPECT_THROW(ParseCommandLine(bad), UsageError) << bad.size();
  }
  // An empty file name is refused, never taken as the option left out.
  for (const char* option : {"--values", "--preset", "--save-preset", "--plugins"}) {
    try {
      ParseCommandLine({"render", "X", "-i", "a.mp4", "-o", "a.png", option, ""});
      ADD_FAILURE() << option << " \"\" was taken";
    } catch (const UsageError& e) {
      EXPECT_EQ(std::string(e.what()), std::string(option) + " needs a file name");
    }
  }
  EXPECT_THROW(ParseCommandLine({"demo", "--stills", ""}), UsageError);
}

TEST(FramePattern, FindsAndFormatsFrameNumbers) {
  EXPECT_TRUE(HasFramePattern("out_%04d.png"));
  EXPECT_TRUE(HasFramePattern("%d.png"));
  EXPECT_FALSE(HasFramePattern("100%.png"));
  EXPECT_FALSE(HasFramePattern("plain.png"));
  EXPECT_EQ(FormatFramePattern("dir/out_%04d.png", 7), "dir/out_0007.png");
  EXPECT_EQ(FormatFramePattern("f%d.tif", 123), "f123.tif");
  EXPECT_EQ(ExtensionOf("a.b/c.PNG"), "png");
  EXPECT_EQ(ExtensionOf("a.b/c"), "");
  // Matching a name answers the frame number, only for the pattern's own spelling.
  int64_t n = 0;
  EXPECT_TRUE(MatchFramePattern("f_%04d.png", "f_0007.png", &n));
  EXPECT_EQ(n, 7);
  EXPECT_TRUE(MatchFramePattern("f_%04d.png", "f_12345.png", &n));
  EXPECT_EQ(n, 12345);
  EXPECT_FALSE(MatchFramePattern("f_%04d.png", "f_7.png", &n));
  EXPECT_FALSE(MatchFramePattern("f_%04d.png", "f_0007.jpg", &n));
  EXPECT_FALSE(MatchFramePattern("f_%d.png", "f_.png", &n));
  EXPECT_TRUE(FramePatternsOverlap("f_%d.png", "f_%04d.png"));
  EXPECT_FALSE(FramePatternsOverlap("f_%d.png", "g_%d.png"));
}

std::string TempFolder() {
  char pattern[] = "/tmp/nimbo-host-unit-XXXXXX";
  return mkdtemp(pattern);
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

TEST(OutputAliases, DistinctFilesPassAndEverySpellingOfOneFileIsCaught) {
  const std::string dir = TempFolder();
  std::filesystem::create_directory(dir + "/a");
  std::filesystem::create_directory(dir + "/b");
  for (const char* name : {"/in.png", "/a/in.png", "/f_0001.png", "/f_0002.png"}) std::ofstream(dir + name) << "x";
  using Paths = std::vector<RolePath>;
  auto in = [&](const std::string& name) { return RolePath{"-i", dir + name}; };
  auto out = [&](const std::string& option, const std::string& name) { return RolePath{option, dir + name}; };
  // Neighbours that only look alike are not the same file.
  const std::vector<std::pair<Paths, Paths>> distinct = {
      {{in("/in.png")}, {out("-o", "/out.png"), out("--values", "/out.csv"), out("--save-preset", "/p.xml")}},
      {{in("/a/in.png")}, {out("-o", "/b/in.png")}},
      {{in("/f_%04d.png")}, {out("-o", "/g_%04d.png")}},
      {{in("/f_%04d.png")}, {out("-o", "/f_%04d.jpg")}},
      {{in("/in.png")}, {out("--save-preset", "/p.xml"), out("--save-preset", "/a/p.xml")}},
  };
  for (const auto& [inputs, outputs] : distinct) {
    EXPECT_NO_THROW(CheckOutputsDoNotAlias(inputs, outputs)) << outputs[0].path;
  }
  // Two outputs that do not exist yet, spelled apart, are still one file;
  // so is a frame of an input sequence named on its own.
  const std::vector<std::pair<Paths, Paths>> same = {
      {{in("/in.png")}, {out("-o", "/new.png"), out("--values", "/a/../new.png")}},
      {{in("/f_%04d.png")}, {out("-o", "/./f_0002.png")}},
      {{in("/in.png")}, {out("-o", "/b/../a/in.png"), out("--values", "/a/in.png")}},
  };
  for (const auto& [inputs, outputs] : same) {
    EXPECT_THROW(CheckOutputsDoNotAlias(inputs, outputs), HostError) << outputs[0].path;
  }
  std::filesystem::remove_all(dir);
}

TEST(PendingFile, AppearsOnlyOnCommitAndKeepsTheOldFileOtherwise) {
  const std::string dir = TempFolder();
  const std::string target = dir + "/out.txt";
  {
    std::ofstream(target) << "old";
    PendingFile file(target);
    file.WriteAll("new", 3);
    EXPECT_TRUE(Exists(file.TempPath()));
  }  // not committed
  std::ifstream kept(target);
  std::string text;
  kept >> text;
  EXPECT_EQ(text, "old");
  {
    PendingFile file(target);
    file.WriteAll("new", 3);
    file.Commit();
    EXPECT_FALSE(Exists(file.TempPath()));
  }
  std::ifstream replaced(target);
  replaced >> text;
  EXPECT_EQ(text, "new");
  EXPECT_THROW(PendingFile{dir + "/missing/out.txt"}, HostError);
  EXPECT_THROW(PendingFile{dir}, HostError);  // a folder
  std::remove(target.c_str());
  rmdir(dir.c_str());
}

std::string Text(const std::string& path) {
  std::ifstream in(path);
  std::string text;
  std::getline(in, text);
  return text;
}

TEST(OutputCommit, PutsEverythingInPlaceOrNothing) {
  const std::string dir = TempFolder();
  std::ofstream(dir + "/a.txt") << "old";
  std::ofstream(dir + "/s_1.txt") << "old";
  {
    PendingFile file(dir + "/a.txt");
    file.WriteAll("new", 3);
    PendingSequence frames(dir + "/s_%d.txt");  // gets no frame: it cannot be sealed
    OutputCommit commit;
    commit.Add(file);
    commit.Add(frames);
    EXPECT_THROW(commit.Commit(), HostError);
  }
  EXPECT_EQ(Text(dir + "/a.txt"), "old");  // sealed, but not put in place
  EXPECT_EQ(Text(dir + "/s_1.txt"), "old");
  {
    PendingFile file(dir + "/a.txt");
    file.Append("ne", 2);
    file.Append("w", 1);
    PendingSequence frames(dir + "/s_%d.txt");
    frames.AddFrame("one", 3);
    frames.AddFrame("two", 3);
    EXPECT_FALSE(Exists(dir + "/s_2.txt"));  // frames wait in the temporary folder
    OutputCommit commit;
    commit.Add(file);
    commit.Add(frames);
    commit.Commit();
  }
  EXPECT_EQ(Text(dir + "/a.txt"), "new");
  EXPECT_EQ(Text(dir + "/s_1.txt"), "one");
  EXPECT_EQ(Text(dir + "/s_2.txt"), "two");
  std::filesystem::remove_all(dir);
}

TEST(EffectHost, KeepsZeroedMemoryPerSlotAndRunsTheFrameClock) {
  EffectHost host(64, 48, 30.0);
  auto* a = static_cast<uint8_t*>(host.GetMemory(1, 100));
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a[99], 0);
  a[5] = 7;
  EXPECT_EQ(host.GetMemory(1, 100), a);  // same slot and size: same buffer, contents kept
  EXPECT_EQ(static_cast<uint8_t*>(host.GetMemory(1, 100))[5], 7);
  auto* b = static_cast<uint8_t*>(host.GetMemory(1, 200));
  EXPECT_EQ(b[5], 0);  // another size: a fresh zeroed one
  // SIMD kernels get whole cache lines: memory and frames start on 64 bytes,
  // large ones (from mmap) included.
  FrameBuffer frame(1920, 1080);
  for (const void* p : {host.GetMemory(2, 3), host.GetMemory(3, 8 << 20), static_cast<void*>(frame.pixels.data())}) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u);
  }
  host.FreeMemory(2);
  host.FreeMemory(3);
  EXPECT_EQ(host.MemoryInUse(), 200u);
  host.FreeMemory(1);
  EXPECT_EQ(host.MemoryInUse(), 0u);
  host.SetFrame(45);
  EXPECT_EQ(host.GetTimeMs(), 1500);
  orrery::OutputDesc desc{};
  host.GetOutputSize(&desc);
  EXPECT_EQ(desc.width, 64);
  EXPECT_EQ(desc.height, 48);
  EXPECT_EQ(host.GetConfigStore()->GetInt("!", 0), 0);  // a fresh document: the effect writes its defaults
}

}  // namespace
}  // namespace nimbo::host
