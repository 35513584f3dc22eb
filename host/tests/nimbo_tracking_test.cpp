// ColorTracker's published values through the built `nimbo` program: up in
// the picture is up in "track y", whatever order the rows are stored in.
#include <gtest/gtest.h>

#include <sstream>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

// A grey picture with a blue disc of radius 8 centred at (cx, cy).
FrameBuffer Disc(int32_t w, int32_t h, int32_t cx, int32_t cy) {
  FrameBuffer f(w, h, 0xFF807870u);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= 64) f.pixels[size_t(y) * size_t(w) + size_t(x)] = 0xFF2040E0u;
    }
  }
  return f;
}

// The values of column `name` of a --values CSV, one per frame.
std::vector<double> Column(const std::string& csv, const std::string& name) {
  std::istringstream in(csv);
  std::string line, cell;
  std::getline(in, line);
  std::istringstream header(line);
  int column = -1;
  for (int i = 0; std::getline(header, cell, ','); ++i) {
    if (cell == name) column = i;
  }
  std::vector<double> values;
  if (column < 0) return values;
  while (std::getline(in, line)) {
    std::istringstream row(line);
    for (int i = 0; std::getline(row, cell, ','); ++i) {
      if (i == column) values.push_back(std::stod(cell));
    }
  }
  return values;
}

TEST_F(NimboTest, AnObjectMovingUpMakesTrackYRiseFromBottomToTop) {
  // Eight frames: the disc climbs from near the bottom (y = 100 of 112) to
  // near the top (y = 16), 12 rows a frame.
  for (int i = 0; i < 8; ++i) WritePicture("f_" + std::to_string(1000 + i).substr(1) + ".png", Disc(96, 112, 48, 100 - 12 * i));
  const RunResult r = Run({"render", "ColorTracker", "-i", Path("f_%03d.png"), "--set", "object_color=0x2040E0",
                           "--set", "smooth=0", "--values", Path("v.csv"), "-o", Path("o_%03d.png")},
                          true);
  ASSERT_EQ(r.code, 0) << r.err;
  const std::vector<double> y = Column(ReadFile(Path("v.csv")), "track y");
  ASSERT_EQ(y.size(), 8u) << ReadFile(Path("v.csv"));
  // (y = 100 of 112 is 2*100/112 - 1 = 0.79 below the centre: -0.79.)
  EXPECT_NEAR(y.front(), -0.79, 0.05);
  EXPECT_NEAR(y.back(), 1 - 2 * 16 / 112.0, 0.05);
  for (size_t i = 1; i < y.size(); ++i) EXPECT_GT(y[i], y[i - 1]) << "frame " << i;
  // Across, it stays in the middle (within the tracker's few pixels).
  for (double x : Column(ReadFile(Path("v.csv")), "track x")) EXPECT_NEAR(x, 0.0, 0.1);
}

// The same values as JSON: one object per frame, keyed by the CSV's column
// names and holding the CSV's numbers as written; a chain names each column's
// effect, counting a repeated one.
TEST_F(NimboTest, ValuesAsJsonHoldTheCsvRowsAndAChainNamesEachStage) {
  for (int i = 0; i < 3; ++i) WritePicture("f_" + std::to_string(i) + ".png", Disc(64, 48, 20 + 8 * i, 30 - 4 * i));
  const auto render = [&](const std::string& values) {
    const RunResult r = Run({"render", "ColorTracker", "-i", Path("f_%d.png"), "--set", "object_color=0x2040E0",
                             "--then", "ColorTracker", "--values", Path(values), "-o", Path("o_%d.png")},
                            true);
    EXPECT_EQ(r.code, 0) << r.err;
    return ReadFile(Path(values));
  };
  const std::string csv = render("v.csv"), json = render("v.JSON");
  std::istringstream in(csv);
  std::string line, cell;
  std::getline(in, line);
  std::vector<std::string> names;
  for (std::istringstream header(line); std::getline(header, cell, ',');) names.push_back(cell);
  ASSERT_EQ(names.size(), 8u) << csv;
  EXPECT_EQ(names[2], "ColorTracker/track x");
  EXPECT_EQ(names[5], "ColorTracker#2/track x");
  std::string expected = "[";
  for (int row = 0; std::getline(in, line); ++row) {
    expected += row ? ",\n  {" : "\n  {";
    std::istringstream cells(line);
    for (size_t k = 0; std::getline(cells, cell, ','); ++k) expected += (k ? ", \"" : "\"") + names[k] + "\": " + cell;
    expected += "}";
  }
  expected += "\n]\n";
  EXPECT_EQ(json, expected);
}

}  // namespace
}  // namespace nimbo::host
