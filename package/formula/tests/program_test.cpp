// The program dialect: lines, symbols, the required result, outputs.
#include <gtest/gtest.h>

#include "formula/program.h"

namespace nimbo::formula {
namespace {

TEST(Program, LinesUseEarlierNamesAndTheLastAssignsTheResult) {
  Program p;
  const auto status = p.Compile("r = x*x + y*y\nr2 = sqrt(R)\nfun = R2 - 1", "FUN", {}, {});
  ASSERT_TRUE(status.ok);
  EXPECT_EQ(p.Evaluate(0, 3, 4, 0), 4);
  EXPECT_EQ(p.Lines().size(), 2u);
  EXPECT_EQ(p.ResultCode(), (Code{'V', 261, 'D', 0x3f800000u, '-', 0})) << "R2 is the second line's code";

  // One more line after FUN: the result name is missing, no line to show.
  const auto extra = p.Compile("R = X\nFUN = R\nA = 1", "FUN", {}, {});
  EXPECT_FALSE(extra.ok);
  EXPECT_FALSE(extra.line.has_value());
  EXPECT_FALSE(p.Compile("", "FUN", {}, {}).ok);
  EXPECT_FALSE(p.Compile("FUNNY=1", "FUN", {}, {}).ok);
}

TEST(Program, ErrorsReportTheEditorLine) {
  Program p;
  // Lines cut at CR and LF; the number counts LF characters only.
  const auto status = p.Compile("A=1\r\n\r\nB=2\r\nC=2*-1\nFUN=C", "FUN", {}, {});
  EXPECT_FALSE(status.ok);
  EXPECT_EQ(status.line, 3);
  // Ignored lines still count.
  EXPECT_EQ(p.Compile("comment\n\nA=\nB=(\nFUN=1", "FUN", {}, {}).line, 3);
  // A line cannot use its own name; a later line sees the latest value.
  EXPECT_EQ(p.Compile("A=A+1\nFUN=A", "FUN", {}, {}).line, 0);
  ASSERT_TRUE(p.Compile("A=2\nA=A*5\nFUN=A+1", "FUN", {}, {}).ok);
  EXPECT_EQ(p.Evaluate(0, 0, 0, 0), 11);
  // Exponents are numbers here.
  ASSERT_TRUE(p.Compile("FUN=1E5+1E-5*0+2e1", "FUN", {}, {}).ok);
  EXPECT_EQ(p.Evaluate(0, 0, 0, 0), 100020);
}

TEST(Program, OutputsReadTheirLinesOrLineZero) {
  Program p;
  ASSERT_TRUE(p.Compile("U=X+1\nV=Y*2\nu=T\nW=9", "", {"u", "v", "nx"}, {}).ok);
  EXPECT_FALSE(p.HasResult());
  EXPECT_EQ(p.Evaluate(7, 1, 2, 3), 0) << "no result expression";
  EXPECT_EQ(p.Output(0), 7) << "the last line named u, case ignored";
  EXPECT_EQ(p.Output(1), 4);
  EXPECT_EQ(p.Output(2), 2) << "no line assigns nx: line 0's value";
}

TEST(Program, UserVariablesAndTheLineLimit) {
  Program p;
  ASSERT_TRUE(p.Compile("FUN=speed*X+T", "FUN", {}, {{"speed", 3}}).ok);
  EXPECT_EQ(p.ResultCode(), (Code{'V', 260, 'V', 257, '*', 'V', 256, '+', 0}));
  EXPECT_EQ(p.Evaluate(1, 2, 0, 0), 7);

  std::string lines;
  for (int k = 0; k < 128; ++k) lines += "A=" + std::to_string(k) + "\n";
  ASSERT_TRUE(p.Compile(lines + "FUN=A", "", {}, {}).ok == false) << "129 lines";
  EXPECT_EQ(p.Compile(lines + "FUN=A", "", {}, {}).line, 128);
  ASSERT_TRUE(p.Compile(lines, "", {}, {}).ok);
}

TEST(Program, EveryByteGivesAValueOrAnError) {
  Program p;
  for (int c = 1; c < 256; ++c) {
    const std::string byte(1, char(c));
    for (const std::string& text : {"A=" + byte, "A=(1" + byte + "2)\nFUN=A", byte + "=1\nFUN=" + byte}) {
      const auto status = p.Compile(text, "FUN", {"A"}, {{"speed", 1}});
      if (status.ok) {
        p.Evaluate(1, 2, 3, 4);
        EXPECT_EQ(p.ResultCode().back(), 0u);
      }
    }
  }
}

}  // namespace
}  // namespace nimbo::formula
