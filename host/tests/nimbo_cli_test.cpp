// End-to-end runs of the built `nimbo` program: the real package for the
// listing, the fixture package (effects with exactly known output) for
// renders, settings, presets, keyframes, published values and errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "nimbo_run.h"
#include "runtime/settings_edit.h"

namespace nimbo::host {
namespace {

TEST_F(NimboTest, ListShowsEveryRegisteredEffect) {
  const RunResult r = Run({"list", "--json"}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  // The package's effects in index order, as JSON text: name, category, inputs.
  struct Listed {
    const char* name;
    const char* category;
    const char* inputs;
  };
  const Listed expected[] = {
      {R"(nimbo one\\ReScaler)", "Effect,XYZ,", R"("RGB Bitmap")"},
      {R"(nimbo one\\LoPass)", "Effect,Filter,", R"("RGB Bitmap")"},
      {R"(nimbo one\\TimeBlur2)", "Effect,Filter,Time,Blur,", R"("RGB Bitmap")"},
      {R"(nimbo one\\Fast h-Blur)", "Effect,Filter,Blur,", R"("RGB Bitmap")"},
      {R"(nimbo one\\RGB Displacer)", "Effect,Filter,Colour,", R"("RGB Bitmap")"},
      {R"(nimbo one\\ColorReducer)", "Effect,Filter,Colour,", R"("RGB Bitmap")"},
      {R"(nimbo one\\3D Effect\\Evaluator3D)", "Effect,3D,", R"("Background", "UNKNOWN", "UNKNOWN", "height map")"},
      {R"(nimbo one\\3D Effect\\3DSViewer)", "Effect,3D,",
       R"("Background", "RGB Texture", "RGB Texture", "RGB Texture", "RGB Texture", "RGB Texture", )"
       R"("RGB Texture", "RGB Texture", "RGB Texture")"},
      {R"(nimbo one\\Glitter)", "Effect,Filter,", R"("RGB Bitmap")"},
      {R"(nimbo one\\Retina Killer)", "Effect,Filter,", R"("RGB Bitmap")"},
      {R"(nimbo one\\3D Effect\\Blob 3D)", "Effect,3D,", R"("background", "UNKNOWN", "UNKNOWN")"},
      {R"(nimbo one\\3D Effect\\Donkey)", "Effect,3D,", R"("Background", "UNKNOWN", "UNKNOWN")"},
      {R"(nimbo one\\3D Effect\\ImplicitBeast)", "Effect,3D,", R"("background", "UNKNOWN", "UNKNOWN")"},
      {R"(nimbo one\\3D Effect\\WAXViewer)", "Effect,3D,", R"("Background", "WAX", "UNKNOWN", "UNKNOWN")"},
      {R"(nimbo one\\3D Effect\\WAXRotate)", "Effect,3D,", R"("WAX input")"},
      {R"(nimbo one\\3D Effect\\3DStoWAX)", "Effect,Filter,3D,", ""},
      {R"(nimbo one\\ChromaKeyPRO)", "Effect,Filter,Keying,", R"("Chroma", "Background")"},
      {R"(nimbo one\\XtractAlpha)", "Effect,Filter,Alpha,", R"("RGB")"},
      {R"(nimbo one\\ColorTrafo)", "Effect,Filter,Colour,", R"("RGB Bitmap")"},
      {R"(nimbo one\\ColorTracker)", "Effect,Filter,Colour,", R"("RGB Bitmap")"},
      {R"(nimbo one\\3D Effect\\Text3D)", "Effect,3D,Text,", R"("RGB Bitmap", "UNKNOWN", "UNKNOWN")"},
      {R"(nimbo one\\Distorter)", "Effect,Filter,", R"("RGB Bitmap")"},
      {R"(nimbo one\\3D Effect\\WAXCombine)", "Effect,3D,", R"("WAX input 1", "WAX input 2")"},
      {R"(nimbo one\\LowQ)", "Effect,Filter,", R"("RGB Bitmap")"},
  };
  size_t at = 0;
  int32_t index = 0;
  for (const Listed& e : expected) {
    at = r.out.find("{\"index\": " + std::to_string(index++) + ", \"name\": \"" + e.name + "\"", at);
    ASSERT_NE(at, std::string::npos) << e.name << "\n" << r.out;
    const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
    EXPECT_NE(line.find("\"category\": \"" + std::string(e.category) + "\""), std::string::npos) << line;
    EXPECT_NE(line.find("\"inputs\": [" + std::string(e.inputs) + "]"), std::string::npos) << line;
  }
  EXPECT_EQ(r.out.find("{\"index\": 24"), std::string::npos) << "more effects than the package has";
}

TEST_F(NimboTest, InfoShowsWhatAFreshEffectWrites) {
  const RunResult r = Run({"info", "copy", "--json"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("\"output\": \"copied\""), std::string::npos);
  for (const char* expected : {R"({"key": "tint", "type": "int", "default": 0})",
                               R"({"key": "mix", "type": "float", "default": 0.500000})",
                               R"({"key": "label", "type": "string", "default": "plain"})",
                               R"({"key": "file", "type": "path", "default": ""})",
                               R"({"name": "Level", "type": "float", "min": 0, "max": 1, "default": 0.25})",
                               R"({"name": "Invert", "type": "bool", "default": 0})", R"({"name": "Amount")",
                               R"({"name": "mean red")"}) {
    EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\n" << r.out;
  }
  const RunResult text = Run({"info", "3D Effect\\Gen"});
  ASSERT_EQ(text.code, 0) << text.err;
  EXPECT_NE(text.out.find("inputs    none"), std::string::npos) << text.out;
}

// The rest of each effect's static description, the package's own line,
// and the value each host slider starts at (relative to the minimum, shifted
// down by half the range only in the upper half).
TEST_F(NimboTest, InfoAndVersionShowTheWholeDescription) {
  const RunResult r = Run({"info", "ReScaler", "--json"}, true);
  ASSERT_EQ(r.code, 0) << r.err;
  for (const char* expected : {R"("input_sizes": [[-1, -1]],)", R"("output_size": [-1, -1],)",
                               R"("display_name": "nimbo one\\ReScaler",)", R"("version": "0x015E0000",)"}) {
    EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\n" << r.out;
  }
  EXPECT_EQ(r.out.find(R"("author": "",)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(R"("author": ")"), std::string::npos) << r.out;
  const RunResult none = Run({"info", "3DStoWAX", "--json"}, true);
  EXPECT_NE(none.out.find(R"("inputs": [],)" "\n" R"(  "input_sizes": [],)"), std::string::npos) << none.out;
  const RunResult text = Run({"info", "LowQ"}, true);
  EXPECT_NE(text.out.find("\n  version   0x015E0000\n  author    "), std::string::npos) << text.out;

  const RunResult retina = Run({"info", "Retina Killer", "--json"}, true);
  EXPECT_NE(retina.out.find(R"("min": 0, "max": 255, "value": 176, "initial": 48.5})"), std::string::npos)
      << retina.out;
  EXPECT_NE(retina.out.find(R"("min": 0, "max": 64, "value": 8, "initial": 8})"), std::string::npos) << retina.out;
  const RunResult distorter = Run({"info", "Distorter", "--json"}, true);
  EXPECT_NE(distorter.out.find(R"("min": -1, "max": 1, "value": 0, "initial": 1})"), std::string::npos)
      << distorter.out;

  const RunResult version = Run({"--version"}, true);
  ASSERT_EQ(version.code, 0) << version.err;
  ASSERT_EQ(version.out.rfind("nimbo 1.0\n", 0), 0u) << version.out;
  EXPECT_TRUE(version.out.ends_with(". ver SP1\n")) << version.out;
}

TEST_F(NimboTest, PassThroughReproducesThePictureExactly) {
  const FrameBuffer picture = Noise(31, 19);
  WritePicture("in.png", picture);
  RunResult r = Run({"render", "nimbo one\\COPY", "-i", Path("in.png"), "-o", Path("out.png"), "--keep-alpha"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("out.png").at(0).pixels, picture.pixels);
  r = Run({"render", "0", "-i", Path("in.png"), "-o", Path("kept.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("kept.png").at(0).pixels, picture.pixels);  // PNG always keeps alpha
  r = Run({"render", "0", "-i", Path("in.png"), "-o", Path("opaque.tif")});
  ASSERT_EQ(r.code, 0) << r.err;
  const FrameBuffer opaque = ReadAll("opaque.tif").at(0);
  for (size_t i = 0; i < picture.pixels.size(); ++i) ASSERT_EQ(opaque.pixels[i], picture.pixels[i] | 0xFF000000u);
  EXPECT_TRUE(r.err.empty()) << r.err;  // quiet when not on a terminal
}

TEST_F(NimboTest, RendersVideosAndSequencesWithTheRightSizeAndFrameCount) {
  RunResult r = Run({"render", "Gen", "--size", "64x48", "--frames", "12", "-o", Path("gen.mp4")});
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<FrameBuffer> frames = ReadAll("gen.mp4");
  ASSERT_EQ(frames.size(), 12u);
  EXPECT_EQ(frames[0].width, 64);
  EXPECT_EQ(frames[0].height, 48);
  EXPECT_NEAR(int(frames[11].pixels[100] & 0xFF), 11, 2);  // the host clock: 40 ms a frame

  r = Run({"render", "copy", "-i", Path("gen.mp4"), "--frames", "5", "-o", Path("seq_%02d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("seq_%02d.png").size(), 5u);
  r = Run({"render", "copy", "-i", Path("seq_%02d.png"), "--size", "32x24", "-o", Path("small.mkv")});
  ASSERT_EQ(r.code, 0) << r.err;
  frames = ReadAll("small.mkv");
  ASSERT_EQ(frames.size(), 5u);
  EXPECT_EQ(frames[0].width, 32);

  // A still input repeats for --frames.
  WritePicture("still.png", FrameBuffer(16, 16, 0xFF808080u));
  r = Run({"render", "copy", "-i", Path("still.png"), "--frames", "4", "-o", Path("still.mp4")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("still.mp4").size(), 4u);

  // Without inputs: 640x480, one frame into a picture, five seconds of video.
  r = Run({"render", "Gen", "-o", Path("alone.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  frames = ReadAll("alone.png");
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(frames[0].width, 640);
  EXPECT_EQ(frames[0].height, 480);
  r = Run({"render", "Gen", "--size", "32x24", "--fps", "10", "-o", Path("alone.mp4")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("alone.mp4").size(), 50u);
}

TEST_F(NimboTest, InputSizesAreNegotiatedPerInput) {
  WritePicture("main.png", FrameBuffer(40, 30, 0xFF102030u));
  WritePicture("side.png", FrameBuffer(100, 100, 0xFF405060u));
  const RunResult r = Run({"render", "pair", "-i", Path("main.png"), "-i", Path("side.png"), "-o", Path("o.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  const FrameBuffer out = ReadAll("o.png").at(0);
  EXPECT_EQ(out.pixels[0], 0xFF000000u | 20u << 16 | 15u << 8);  // the side input came at half the render size
  EXPECT_EQ(out.pixels[1], 0xFF405060u);
  EXPECT_EQ(out.pixels[2], 0xFF102030u);
}

TEST_F(NimboTest, SettingsPresetsAndChains) {
  const FrameBuffer picture = Noise(8, 8);
  WritePicture("in.png", picture);
  RunResult r = Run({"render", "copy", "-i", Path("in.png"), "--set", "tint=0x00FF00", "--set", "label=x<y",
                     "--save-preset", Path("p.xml"), "-o", Path("a.png"), "--keep-alpha"});
  ASSERT_EQ(r.code, 0) << r.err;
  const FrameBuffer a = ReadAll("a.png").at(0);
  for (size_t i = 0; i < a.pixels.size(); ++i) ASSERT_EQ(a.pixels[i], picture.pixels[i] ^ 0x00FF00u);

  const std::vector<SettingEntry> saved = ReadSettingEntries(ReadFile(Path("p.xml")));
  ASSERT_EQ(saved.size(), 5u);
  EXPECT_EQ(saved[0].key, "tint");
  EXPECT_EQ(saved[0].type, "int");
  EXPECT_EQ(saved[0].value, "65280");
  EXPECT_EQ(saved[3].value, "x<y");
  EXPECT_EQ(ReadDynVarValues(ReadFile(Path("p.xml"))).size(), 2u);

  r = Run({"render", "copy", "-i", Path("in.png"), "--preset", Path("p.xml"), "-o", Path("b.png"), "--keep-alpha"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(ReadAll("b.png").at(0).pixels, a.pixels);

  // A chain: the second effect takes the first one's output; its own --set
  // and the preset's settings combine.
  r = Run({"render", "copy", "-i", Path("in.png"), "--preset", Path("p.xml"), "--then", "copy", "--set",
           "tint=0x0000FF", "-o", Path("c.png"), "--keep-alpha"});
  ASSERT_EQ(r.code, 0) << r.err;
  const FrameBuffer c = ReadAll("c.png").at(0);
  for (size_t i = 0; i < c.pixels.size(); ++i) ASSERT_EQ(c.pixels[i], picture.pixels[i] ^ 0x00FFFFu);
}

TEST_F(NimboTest, KeyframesDriveDynamicVariablesAndSlidersAndValuesAreWritten) {
  WritePicture("in.png", FrameBuffer(8, 8, 0xFF640000u));  // red 100
  const RunResult r = Run({"render", "copy", "-i", Path("in.png"), "--set", "probe=1", "--frames", "5", "--fps",
                           "4", "--dyn", "Level=0@0,1@1", "--dyn", "invert=0@0,1@0.5", "--dyn", "Amount=42",
                           "--values", Path("v.csv"), "-o", Path("k_%d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  const std::vector<FrameBuffer> frames = ReadAll("k_%d.png");
  ASSERT_EQ(frames.size(), 5u);
  for (size_t n = 0; n < 5; ++n) {
    const uint32_t probe = frames[n].pixels[0];
    EXPECT_EQ((probe >> 16) & 0xFF, uint32_t(n * 50)) << n;  // Level = n / 4 s, R = Level * 200
    EXPECT_EQ((probe >> 8) & 0xFF, n >= 1 ? 255u : 0u) << n;  // Invert crosses 0.5 at 0.25 s
    EXPECT_EQ(probe & 0xFF, 42u);
  }
  const std::string csv = ReadFile(Path("v.csv"));
  EXPECT_EQ(csv.rfind("frame,time,mean red\n0,0,100\n1,0.25,100\n", 0), 0u) << csv;
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 6);
}

TEST_F(NimboTest, BadInputGivesOneErrorLineAndLeavesNoFile) {
  WritePicture("in.png", FrameBuffer(8, 8, 0xFF000000u));
  std::ofstream(Path("junk.mp4")) << "not a video";
  const std::string in = Path("in.png"), out = Path("out.mp4");
  struct Case {
    std::vector<std::string> args;
    const char* message;
  };
  const std::vector<Case> cases = {
      {{"render", "copy", "-i", Path("missing.png"), "-o", out}, "missing.png"},
      {{"render", "copy", "-i", Path("junk.mp4"), "-o", out}, "junk.mp4"},
      {{"render", "nosuch", "-i", in, "-o", out}, "unknown effect \"nosuch\""},
      {{"render", "pair", "-i", in, "-o", out}, "takes 2 inputs (Main, Side); 1 given"},
      {{"render", "copy", "-i", in, "-i", in, "-o", out}, "takes 1 input"},
      {{"render", "copy", "-i", in, "--set", "tnt=1", "-o", out}, "valid keys: tint, probe, mix, label, file"},
      {{"render", "copy", "-i", in, "--set", "mix=lots", "-o", out}, "\"mix\" is a float"},
      {{"render", "copy", "-i", in, "--dyn", "Level=3", "-o", out}, "\"Level\" takes values in"},
      {{"render", "copy", "-i", in, "--dyn", "Nope=1", "-o", out}, "valid names: \"Level\", \"Invert\", \"Amount\""},
      {{"render", "copy", "-i", in, "--preset", Path("missing.xml"), "-o", out}, "missing.xml"},
      {{"render", "copy", "-i", in, "-o", Path("no/such/dir/out.png")}, "cannot write"},
      {{"render", "copy", "-i", in, "-o", Path("out.xyz")}, "out.xyz"},
      {{"render", "copy", "-i", in, "--values", Path("v.csv"), "--then", "pair", "-o", out}, "takes 2 inputs"},
      {{"render", "copy", "-i", "/dev/video99", "--frames", "2", "-o", out}, "camera"},
  };
  for (const Case& c : cases) {
    const RunResult r = Run(c.args);
    EXPECT_NE(r.code, 0) << c.message;
    EXPECT_EQ(r.err.rfind("nimbo: error: ", 0), 0u) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(Files(), (std::vector<std::string>{"in.png", "junk.mp4"})) << c.message;
  }
  const RunResult usage = Run({"render", "copy", "-i", in, "-o", out, "--frames", "-3"});
  EXPECT_EQ(usage.code, 2);
}

// `--set` refuses a value outside the range `nimbo info` shows, or not
// finite, with the key, the value and the range in one error line.
TEST_F(NimboTest, SetRefusesValuesOutsideTheirRangeNamingKeyValueAndRange) {
  WritePicture("in.png", Noise(8, 8));
  const std::string in = Path("in.png"), out = Path("out.png");
  struct Case {
    std::vector<std::string> args;
    const char* message;
  };
  const std::vector<Case> cases = {
      {{"render", "TimeBlur2", "-i", in, "--set", "n_screens=-5", "-o", out},
       "--set n_screens=-5: \"n_screens\" takes values in 1 .. 32"},
      {{"render", "ColorTrafo", "-i", in, "--set", "hue=1000", "-o", out},
       "--set hue=1000: \"hue\" takes values in -180 .. 180"},
      {{"render", "ColorTrafo", "-i", in, "--set", "hue=-inf", "-o", out}, "--set hue=-inf: \"hue\" takes values in"},
      {{"render", "ColorTrafo", "-i", in, "--set", "sat=nan", "-o", out}, "--set sat=nan: \"sat\" takes values in 0 .. 4"},
      {{"render", "ColorTrafo", "-i", in, "--set", "bright=1e39", "-o", out}, "\"bright\" takes values in 0 .. 4"},
      {{"render", "ChromaKeyPRO", "-i", in, "-i", in, "--set", "alphamaplen=100000", "-o", out},
       "--set alphamaplen=100000: \"alphamaplen\" takes values in 0 .. 300"},
      {{"render", "ChromaKeyPRO", "-i", in, "-i", in, "--set", "chroma_rgb=-1", "-o", out},
       "--set chroma_rgb=-1: \"chroma_rgb\" takes values in 0 .. 16777215"},
      {{"render", "ChromaKeyPRO", "-i", in, "-i", in, "--set", "chroma_rgb=0xFFFFFFFF", "-o", out},
       "\"chroma_rgb\" takes values in 0 .. 16777215"},
      {{"render", "ChromaKeyPRO", "-i", in, "-i", in, "--set", "alphamap_0_x=inf", "-o", out},
       "--set alphamap_0_x=inf: \"alphamap_0_x\" takes values in 0 .. 1"},
  };
  for (const Case& c : cases) {
    const RunResult r = Run(c.args, true);
    EXPECT_EQ(r.code, 1) << c.message;
    EXPECT_EQ(r.err.rfind("nimbo: error: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(Files(), std::vector<std::string>{"in.png"}) << c.message;
  }
  // The ends of a range are in it.
  const RunResult edge = Run({"render", "TimeBlur2", "-i", in, "--set", "n_screens=32", "-o", out}, true);
  EXPECT_EQ(edge.code, 0) << edge.err;
  EXPECT_EQ(edge.err, "");
}

// A preset's values go through the same check: out of range (infinities
// too) is clamped, nan and text that is no number keep the effect's default,
// unused and repeated keys are reported; every case is a warning naming the
// key and the value, the render goes on, and --save-preset writes the
// mended values.
TEST_F(NimboTest, PresetValuesAreMendedWithAWarningAndSavedInRange) {
  WritePicture("in.png", Noise(8, 8));
  std::ofstream(Path("p.xml")) << "<Settings><ConfigData>\r\n"
                                  "<data name=\"hue\" type=\"float\">1000.000000</data>\r\n"
                                  "<data name=\"sat\" type=\"float\">nan</data>\r\n"
                                  "<data name=\"bright\" type=\"float\">-inf</data>\r\n"
                                  "<data name=\"hew\" type=\"float\">3</data>\r\n"
                                  "<data name=\"hue\" type=\"float\">10</data>\r\n"
                                  "</ConfigData></Settings>\r\n";
  RunResult r = Run({"render", "ColorTrafo", "-i", Path("in.png"), "--preset", Path("p.xml"), "--save-preset",
                     Path("saved.xml"), "-o", Path("out.png")},
                    true);
  ASSERT_EQ(r.code, 0) << r.err;
  const std::string p = "nimbo: warning: preset \"" + Path("p.xml") + "\": ";
  for (const std::string& line : {
           p + "\"hue\" = \"1000.000000\" is outside -180 .. 180; using 180\n",
           p + "\"sat\" = \"nan\" is not a number in 0 .. 4; keeping the default 1\n",
           p + "\"bright\" = \"-inf\" is outside 0 .. 4; using 0\n",
           p + "ColorTrafo does not use \"hew\"; ignored\n",
           p + "\"hue\" is stored 2 times; the first value, \"1000.000000\", is used\n",
       }) {
    EXPECT_NE(r.err.find(line), std::string::npos) << line << "in\n" << r.err;
  }
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 5) << r.err;
  std::vector<std::string> saved;
  for (const SettingEntry& e : ReadSettingEntries(ReadFile(Path("saved.xml")))) saved.push_back(e.key + "=" + e.value);
  EXPECT_EQ(saved, (std::vector<std::string>{"hue=180.000000", "sat=1.000000", "bright=0.000000"}));

  // Ints: out of range, and a float-typed text that is no number at all.
  std::ofstream(Path("t.xml")) << "<Settings><ConfigData><data name=\"n_screens\" type=\"float\">abc</data>"
                                  "<data name=\"n_screens\" type=\"int\">4</data></ConfigData></Settings>";
  std::ofstream(Path("u.xml")) << "<Settings><ConfigData><data name=\"n_screens\" type=\"int\">100000</data>"
                                  "</ConfigData></Settings>";
  r = Run({"render", "TimeBlur2", "-i", Path("in.png"), "--preset", Path("t.xml"), "--save-preset", Path("t2.xml"),
           "-o", Path("t.png")},
          true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("\"n_screens\" = \"abc\" is not an int; keeping the default 8\n"), std::string::npos) << r.err;
  EXPECT_EQ(ReadSettingEntries(ReadFile(Path("t2.xml"))).at(0).value, "8");
  r = Run({"render", "TimeBlur2", "-i", Path("in.png"), "--preset", Path("u.xml"), "--save-preset", Path("u2.xml"),
           "-o", Path("u.png")},
          true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("\"n_screens\" = \"100000\" is outside 1 .. 32; using 32\n"), std::string::npos) << r.err;
  EXPECT_EQ(ReadSettingEntries(ReadFile(Path("u2.xml"))).at(0).value, "32");

  // An indexed key is checked against its family's range; one beyond its
  // count is never read.
  std::ofstream(Path("c.xml")) << "<Settings><ConfigData><data name=\"alphamaplen\" type=\"int\">2</data>"
                                  "<data name=\"alphamap_0_x\" type=\"float\">inf</data>"
                                  "<data name=\"alphamap_7_x\" type=\"float\">0.5</data>"
                                  "<data name=\"chroma_rgb\" type=\"int\">0x00FF00</data></ConfigData></Settings>";
  r = Run({"render", "ChromaKeyPRO", "-i", Path("in.png"), "-i", Path("in.png"), "--preset", Path("c.xml"),
           "--save-preset", Path("c2.xml"), "-o", Path("c.png")},
          true);
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("\"alphamap_0_x\" = \"inf\" is outside 0 .. 1; using 1\n"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("ChromaKeyPRO does not use \"alphamap_7_x\"; ignored\n"), std::string::npos) << r.err;
  EXPECT_EQ(ReadFile(Path("c2.xml")).find("inf"), std::string::npos);
  // Hex in a stored int reads as its leading 0, as the store reads decimal.
  EXPECT_NE(r.err.find("\"chroma_rgb\" = \"0x00FF00\" reads as 0: stored ints are decimal (write 65280)\n"),
            std::string::npos)
      << r.err;
  EXPECT_NE(ReadFile(Path("c2.xml")).find("<data name=\"chroma_rgb\" type=\"int\">0</data>"), std::string::npos);
}

// A key given twice: `--set` keeps the first, as a preset does, and says so.
// The preset's dynamic variables are checked against their ranges too.
TEST_F(NimboTest, RepeatedKeysKeepTheFirstValueInPresetsAndOnTheCommandLine) {
  WritePicture("in.png", Noise(8, 8));
  RunResult r = Run({"render", "copy", "-i", Path("in.png"), "--set", "tint=1", "--set", "tint=2", "--save-preset",
                     Path("p.xml"), "-o", Path("a.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.err, "nimbo: warning: --set \"tint\" is given more than once; tint=1 is used, tint=2 ignored\n");
  EXPECT_EQ(ReadSettingEntries(ReadFile(Path("p.xml"))).at(0).value, "1");

  std::ofstream(Path("d.xml")) << "<Settings><ConfigData><data name=\"tint\" type=\"int\">3</data>"
                                  "<data name=\"tint\" type=\"int\">4</data></ConfigData><Dynvars>"
                                  "<var name=\"Level\" type=\"float\">7</var><var name=\"Lvl\" type=\"float\">0</var>"
                                  "<var name=\"Level\" type=\"float\">0.5</var><var name=\"Invert\" type=\"bool\">0x1</var>"
                                  "</Dynvars></Settings>";
  r = Run({"render", "copy", "-i", Path("in.png"), "--preset", Path("d.xml"), "--save-preset", Path("d2.xml"), "-o",
           Path("b.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.err.find("\"tint\" is stored 2 times; the first value, \"3\", is used\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("dynamic variable \"Level\" = \"7\" is outside 0 .. 1; using 1\n"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Copy has no dynamic variable \"Lvl\"; ignored\n"), std::string::npos) << r.err;
  // A variable stored twice takes its first value; bools read as "%i" reads.
  EXPECT_NE(r.err.find("dynamic variable \"Level\" is stored more than once; the first value, \"7\", is used\n"),
            std::string::npos)
      << r.err;
  const std::string saved = ReadFile(Path("d2.xml"));
  EXPECT_EQ(ReadSettingEntries(saved).at(0).value, "3");
  const std::vector<DynVarValue> dynvars = ReadDynVarValues(saved);
  ASSERT_EQ(dynvars.size(), 2u) << saved;
  EXPECT_EQ(dynvars[0].value, "1.000000");
  EXPECT_EQ(dynvars[1].name + "=" + dynvars[1].value, "Invert=1");
}

// What nimbo saves it loads without a word, for every effect: the checks
// find nothing to report in a preset the effect wrote itself.
TEST_F(NimboTest, EverySavedPresetLoadsWithoutWarnings) {
  const RunResult list = Run({"list", "--json"}, true);
  ASSERT_EQ(list.code, 0);
  WritePicture("in.png", Noise(16, 16));
  std::istringstream lines(list.out);
  int effects = 0;
  for (std::string line; std::getline(lines, line);) {
    const size_t index = line.find("\"index\": "), inputs = line.find("\"inputs\": [");
    if (index == std::string::npos || inputs == std::string::npos) continue;
    const std::string id = std::to_string(std::atoi(line.c_str() + index + 9));
    const std::string listed = line.substr(inputs, line.find(']', inputs) - inputs);
    // A 3D effect runs with its background alone; a filter needs every input.
    long count = std::count(listed.begin(), listed.end(), '"') / 2 - 1;
    if (line.find("3D,") != std::string::npos) count = std::min(count, 1L);
    std::vector<std::string> args = {"render", id, "--size", "16x16", "--frames", "1"};
    for (long i = 0; i < count; ++i) args.insert(args.end(), {"-i", Path("in.png")});
    const std::string preset = Path("p" + id + ".xml");
    std::vector<std::string> save = args, load = args;
    save.insert(save.end(), {"--save-preset", preset, "-o", Path("a.png")});
    load.insert(load.end(), {"--preset", preset, "-o", Path("b.png")});
    RunResult r = Run(save, true);
    ASSERT_EQ(r.code, 0) << line << "\n" << r.err;
    r = Run(load, true);
    ASSERT_EQ(r.code, 0) << line << "\n" << r.err;
    EXPECT_EQ(r.err.find("warning: preset"), std::string::npos) << line << "\n" << r.err;
    ++effects;
  }
  EXPECT_EQ(effects, 24);
}

}  // namespace
}  // namespace nimbo::host
