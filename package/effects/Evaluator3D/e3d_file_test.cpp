// E3D files: the record layout and key order, the round trip, forgiving
// reads of damaged files, and saves that never leave half a file.
#include "e3d_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

namespace nimbo::e3d {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

std::vector<std::string> KeysOf(const std::string& bytes) {
  std::vector<std::string> keys;
  size_t at = 0;
  while ((at = bytes.find('@', at)) != std::string::npos) {
    const size_t end = bytes.find('\0', at);
    keys.push_back(bytes.substr(at + 1, end - at - 1));
    at = bytes.find('\0', end + 1);
  }
  return keys;
}

FormulaSet Unusual() {
  FormulaSet set;
  for (int32_t f = 0; f < kFieldCount; ++f) set.text[size_t(f)] = "t*" + std::to_string(f);
  set.imax = 33;
  set.jmax = 7;
  set.hmap = set.loopi = set.loopj = 1;
  set.front = 0;
  set.back = 1;
  set.uvmode1 = 3;
  set.uvmode2 = 1;
  set.ipattern = "1101";
  set.jpattern = "01";
  set.info = "waves @ dusk";
  AddUserVariable(set, "speed");
  AddUserVariable(set, "hidden");
  AddUserVariable(set, "size");
  set.vars[1].on = 0;
  return set;
}

TEST(E3DFile, RecordsComeInTheirOrderAndReadBack) {
  const FormulaSet set = Unusual();
  const std::string bytes = FormatE3D(set);
  const std::vector<std::string> expected = {
      "imax", "jmax", "hmap", "loopi", "loopj",   "nvars", "dynvar0", "dynvar1", "info", "a",        "b",
      "c",    "d",    "e",    "f",     "g",       "h",     "x",       "y",       "z",    "uvmode1",  "u",
      "v",    "nx",   "ny",   "nz",    "uvmode2", "u2",    "v2",      "nx2",     "ny2",  "nz2",      "cx",
      "cy",   "cz",   "tx",   "ty",    "tz",      "roll",  "zoom",    "front",   "back", "ipattern", "jpattern"};
  EXPECT_EQ(KeysOf(bytes), expected);
  EXPECT_EQ(bytes.substr(0, 17),
            "@imax\0"s
            "33\0"s
            "@jmax\0"s
            "7\0"s);
  EXPECT_NE(bytes.find("@nvars\0"s
                       "2\0"s
                       "@dynvar0\0"s
                       "speed\0"s
                       "@dynvar1\0"s
                       "size\0"s),
            std::string::npos);
  EXPECT_NE(bytes.find("@x\0"s
                       "t*0\0"s),
            std::string::npos);

  FormulaSet back;
  ASSERT_TRUE(ParseE3D(bytes, back));
  EXPECT_EQ(back.text, set.text);
  EXPECT_EQ(back.imax, 33);
  EXPECT_EQ(back.jmax, 7);
  EXPECT_EQ(back.hmap + back.loopi + back.loopj, 3);
  EXPECT_EQ(back.front, 0);
  EXPECT_EQ(back.back, 1);
  EXPECT_EQ(back.uvmode1, 3);
  EXPECT_EQ(back.uvmode2, 1);
  EXPECT_EQ(back.ipattern, "1101");
  EXPECT_EQ(back.jpattern, "01");
  EXPECT_EQ(back.info, "waves @ dusk");
  ASSERT_EQ(back.vars.size(), 2u);  // only switched-on variables are written
  EXPECT_EQ(back.vars[0].name, "speed");
  EXPECT_EQ(back.vars[1].name, "size");
  EXPECT_EQ(FormatE3D(back), bytes);
}

TEST(E3DFile, DamagedFilesLoadWhatTheyCan) {
  FormulaSet set;
  // Keys in any case; a missing "hmap"/"loopi"/"loopj" is off, other
  // missing keys take their defaults.
  ASSERT_TRUE(
      ParseE3D("@IMAX\0"s
               "5\0"s
               "@X\0"s
               "i*3\0"s
               "@Loopi\0"s
               "1\0"s,
               set));
  EXPECT_EQ(set.imax, 5);
  EXPECT_EQ(set.jmax, 10);
  EXPECT_EQ(set.text[kX], "i*3");
  EXPECT_EQ(set.text[kZ], "(b-0.5)*100");
  EXPECT_EQ(set.loopi, 1);
  EXPECT_EQ(set.hmap, 0);
  EXPECT_EQ(set.loopj, 0);

  // The first record of a key wins.
  ASSERT_TRUE(
      ParseE3D("@y\0"s
               "1\0"s
               "@Y\0"s
               "2\0"s,
               set));
  EXPECT_EQ(set.text[kY], "1");

  // A last value without its zero ends at the end of the file; a key
  // without its zero ends the records.
  ASSERT_TRUE(
      ParseE3D("@jmax\0"s
               "12\0"s
               "@y\0"s
               "j*2"s,
               set));
  EXPECT_EQ(set.jmax, 12);
  EXPECT_EQ(set.text[kY], "j*2");
  ASSERT_TRUE(
      ParseE3D("@jmax\0"s
               "12\0"s
               "@y"s,
               set));
  EXPECT_EQ(set.text[kY], "0");

  // A missing zero in the middle: the value swallows the next record, the
  // records after it still read.
  ASSERT_TRUE(
      ParseE3D("@imax\0"s
               "6"s
               "@jmax\0"s
               "8\0"s
               "@y\0"s
               "7\0"s,
               set));
  EXPECT_EQ(set.imax, 6);
  EXPECT_EQ(set.jmax, 10);
  EXPECT_EQ(set.text[kY], "7");

  // Counts and sizes are bounded.
  std::string many =
      "@nvars\0"s
      "100000\0"s;
  for (int k = 0; k < 300; ++k) many += "@dynvar" + std::to_string(k) + "\0"s + "v" + std::to_string(k) + "\0"s;
  many +=
      "@imax\0"s
      "100000\0"s
      "@jmax\0"s
      "-4\0"s
      "@uvmode1\0"s
      "99\0"s;
  many += "@a\0"s + std::string(5000, '1') + "\0"s;
  ASSERT_TRUE(ParseE3D(many, set));
  EXPECT_EQ(set.vars.size(), 255u);
  EXPECT_EQ(set.vars.back().name, "v254");
  EXPECT_EQ(set.imax, kMaxGridSide);
  EXPECT_EQ(set.jmax, kMinGridSide);
  EXPECT_EQ(set.uvmode1, kUvFormulas);
  EXPECT_EQ(set.text[kA].size(), kMaxFormulaLength);

  // Reserved, short and repeated names are not recreated.
  ASSERT_TRUE(
      ParseE3D("@nvars\0"s
               "4\0"s
               "@dynvar0\0"s
               "hmap\0"s
               "@dynvar1\0"s
               "q\0"s
               "@dynvar2\0"s
               "Gain\0"s
               "@dynvar3\0"s
               "gain\0"s,
               set));
  ASSERT_EQ(set.vars.size(), 1u);
  EXPECT_EQ(set.vars[0].name, "gain");

  // No record at all: not an E3D file, and the set stays as it was.
  set.text[kX] = "kept";
  EXPECT_FALSE(ParseE3D("", set));
  EXPECT_FALSE(ParseE3D("just text, no records\n", set));
  EXPECT_EQ(set.text[kX], "kept");

  // Noise never crashes and never breaks the limits.
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string noise(random() % 400, '\0');
    for (char& c : noise) c = "@\0xiy1a"[random() % 7] ^ char(random() % 3 == 0 ? random() : 0);
    FormulaSet s;
    if (ParseE3D(noise, s)) {
      EXPECT_GE(s.imax, kMinGridSide);
      EXPECT_LE(s.jmax, kMaxGridSide);
      for (const std::string& text : s.text) EXPECT_LE(text.size(), kMaxFormulaLength);
    }
  }
}

TEST(E3DFile, FilesAreWrittenWholeOrNotAtAll) {
  const fs::path dir = fs::temp_directory_path() / ("e3d_test_" + std::to_string(::getpid()));
  fs::remove_all(dir);
  fs::create_directories(dir);
  const std::string path = (dir / "shape.e3d").string();

  EXPECT_EQ(SaveE3DFile(path, Unusual()), "");
  FormulaSet loaded;
  EXPECT_EQ(LoadE3DFile(path, loaded), "");
  EXPECT_EQ(loaded.text, Unusual().text);
  std::ifstream in(path, std::ios::binary);
  std::stringstream whole;
  whole << in.rdbuf();
  EXPECT_EQ(whole.str(), FormatE3D(Unusual()));

  FormulaSet untouched;
  EXPECT_EQ(LoadE3DFile((dir / "missing.e3d").string(), untouched), kMessageCannotOpen);
  EXPECT_EQ(LoadE3DFile(dir.string(), untouched), kMessageCannotOpen);  // a folder
  std::ofstream(dir / "noise.e3d") << "not a formula set";
  EXPECT_EQ(LoadE3DFile((dir / "noise.e3d").string(), untouched), kMessageCannotOpen);
  EXPECT_EQ(untouched.text, FormulaSet().text);

  EXPECT_EQ(SaveE3DFile((dir / "no_such_folder" / "x.e3d").string(), Unusual()), kMessageCannotCreate);
  // A target that cannot be replaced (a folder) leaves no partial file.
  fs::create_directories(dir / "taken.e3d" / "inside");
  EXPECT_EQ(SaveE3DFile((dir / "taken.e3d").string(), Unusual()), kMessageCannotCreate);
  EXPECT_FALSE(fs::exists(dir / "taken.e3d.part"));
  EXPECT_TRUE(fs::is_directory(dir / "taken.e3d"));
  fs::remove_all(dir);
}

}  // namespace
}  // namespace nimbo::e3d
