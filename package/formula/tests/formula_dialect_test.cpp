// The formula dialect as Evaluator3D uses it: preparation, the name check,
// substitution, the variable codes, and the user-variable rules.
#include <gtest/gtest.h>

#include <bit>

#include "formula/compiler.h"
#include "formula/formula_dialect.h"
#include "formula/text.h"
#include "formula/user_variables.h"

namespace nimbo::formula {
namespace {

const std::vector<std::string> kVertexNames = {"i", "j", "hmap", "a", "b", "c", "d", "e", "f", "g", "h"};
uint32_t Bits(float f) { return std::bit_cast<uint32_t>(f); }

TEST(FormulaDialect, DefaultFormulasCompileToTheirWords) {
  EXPECT_EQ(CompileFormula("(a-0.5)*100", kVertexNames, {}).code,
            (Code{'V', 263, 'D', Bits(0.5f), '-', 'D', Bits(100), '*', 0}));
  EXPECT_EQ(CompileFormula("i/(imax-1)", {"i", "j", "hmap"}, {}).code,
            (Code{'V', 271, 'V', 257, 'D', Bits(1), '-', '/', 0}));
  EXPECT_EQ(CompileFormula("cos(t)*100", {}, {}).code, (Code{'V', 262, 'F', 1, 'D', Bits(100), '*', 0}));
  EXPECT_EQ(CompileFormula("2*PI+ScreenW-screenh+jmax*hmap", kVertexNames, {}).code,
            (Code{'D', Bits(2), 'V', 259, '*', 'V', 260, '+', 'V', 261, '-', 'V', 258, 'V', 273, '*', '+', 0}));
  // Every fixed name and its code.
  for (const NamedCode& fixed : FixedNames()) {
    const FormulaResult r = CompileFormula(fixed.name, kVertexNames, {});
    ASSERT_TRUE(r.ok) << fixed.name;
    EXPECT_EQ(r.code, (Code{'V', fixed.code, 0})) << fixed.name;
  }
  ResetFormulaVariables();
  EXPECT_EQ(Evaluate(Dialect::kFormula, CompileFormula("pi", {}, {}).code.data()), 3.14159274f);
}

TEST(FormulaDialect, PreparationFoldsCaseAndDeletesBlanks) {
  const FormulaResult spaced = CompileFormula(" 1 2\t+\nSIN( 0 )", {}, {});
  ASSERT_TRUE(spaced.ok);
  EXPECT_EQ(spaced.code, (Code{'D', Bits(12), 0}));
  EXPECT_EQ(spaced.prepared, Widen("12+sin(0)"));
  // Positions index the prepared text: blanks gone, each name one code.
  const FormulaResult late = CompileFormula("imax + 2 * ", kVertexNames, {});
  EXPECT_FALSE(late.ok);
  EXPECT_EQ(late.position, 4) << "\"<imax>+2*\" ends at 4";
  EXPECT_EQ(late.code, ZeroCode()) << "a failed formula keeps the code of 0";
  const FormulaResult empty = CompileFormula(" \t", kVertexNames, {});
  EXPECT_TRUE(empty.ok);
  EXPECT_EQ(empty.code, ZeroCode());
}

TEST(FormulaDialect, NameCheckComesBeforeSubstitution) {
  const struct {
    const char* text;
    const char* unknown;
  } cases[] = {
      {"1e5", "e5"},      {"imaxx", "imaxx"}, {"2*x", "x"},       {"sin", "sin"}, {"a b", "ab"},
      {"foo(1)+k", "k"},  {"_q", "_q"},       {"3.5e-2", ""},    {"i+j", ""},    {"sin(i)", ""},
      {"2a", ""},         {"hmap2", "hmap2"}, {"abs(e)*f", ""},
  };
  for (const auto& c : cases) {
    const FormulaResult r = CompileFormula(c.text, kVertexNames, {});
    EXPECT_EQ(r.unknown_name, c.unknown) << c.text;
    if (*c.unknown) {
      EXPECT_FALSE(r.ok) << c.text;
      EXPECT_EQ(r.position, -1) << c.text;
    }
  }
  // 2a passes the check, but "a" after a digit is no whole word, so it stays
  // a letter the pre-check refuses.
  EXPECT_EQ(CompileFormula("2a", kVertexNames, {}).position, 1);
  // A field may use only the names before it.
  EXPECT_EQ(CompileFormula("b", {"i", "j", "hmap"}, {}).unknown_name, "b");
  EXPECT_EQ(CompileFormula("i", {}, {}).unknown_name, "i");
  EXPECT_TRUE(CheckNames(Widen("i+t*speed"), "i,j,t,speed"));
  EXPECT_FALSE(CheckNames(Widen("i+t*speed"), "i,j,t"));
}

TEST(FormulaDialect, EveryByteGivesAValueOrAnError) {
  for (int c = 1; c < 256; ++c) {
    const std::string byte(1, char(c));
    for (const std::string& text : {byte, "(1" + byte + "2)", "sin(" + byte + ")", byte + "a"}) {
      const FormulaResult r = CompileFormula(text, kVertexNames, {"speed"});
      if (r.ok) {
        EXPECT_LE(StackDepth(r.code.data()), kStackSlots);
      } else {
        EXPECT_EQ(r.code, ZeroCode());
        EXPECT_LE(r.position, int(r.prepared.size())) << c;
      }
    }
  }
}

TEST(FormulaDialect, SubstitutionReplacesWholeWordsOnly) {
  Text text = Widen("imax+imaxx+ximax+imax_1+(imax)+2imax");
  SubstituteName(text, "imax", 257);
  const char32_t tok = 257;
  EXPECT_EQ(text, Text{tok} + U"+imaxx+ximax+imax_1+(" + tok + U")+2imax");
  Text both = Widen("ab+ab");
  SubstituteName(both, "ab", 300);
  EXPECT_EQ(both, (Text{300, U'+', 300}));
  Text unchanged = Widen("x");
  SubstituteName(unchanged, "", 300);
  EXPECT_EQ(unchanged, Widen("x"));
}

// The one case-blind comparison every reader of names and keys uses: only
// ASCII letters fold; punctuation next to them in the code table, bytes
// above 127 and tokens must match exactly.
TEST(FormulaText, SameIgnoringCaseFoldsAsciiLettersOnly) {
  EXPECT_TRUE(SameIgnoringCase("Bricks.PNG", "bricks.png"));
  EXPECT_FALSE(SameIgnoringCase("bricks.png", "bricks.pn"));
  EXPECT_FALSE(SameIgnoringCase("@[", "`{")) << "0x40 and 0x5B are not letters";
  EXPECT_FALSE(SameIgnoringCase("\xC9", "\xE9")) << "Latin-1 letters are bytes, not folded";
  EXPECT_TRUE(SameIgnoringCase("\xE9", "\xE9"));
  EXPECT_TRUE(SameIgnoringCase(Widen("Fun"), "FUN"));
  EXPECT_FALSE(SameIgnoringCase(Text{U'a', 300}, "a,")) << "a token is no byte";
  EXPECT_FALSE(SameIgnoringCase(Widen("\xC9"), "\xE9"));
}

TEST(FormulaDialect, UserVariablesTakeCodesInListOrder) {
  const FormulaResult r = CompileFormula("Speed*2+size", {}, {"speed", "size"});
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(r.code, (Code{'V', 276, 'D', Bits(2), '*', 'V', 277, '+', 0}));
  // A one-letter name without a code of its own reads its letter's entry.
  EXPECT_EQ(CompileFormula("k", {"k"}, {}).code, (Code{'V', 'k', 0}));
}

TEST(UserVariables, NamesFollowEachDialectsRules) {
  EXPECT_EQ(NormalizeUserVariableName(Dialect::kFormula, "My Var-2"), "myvar_2");
  EXPECT_EQ(NormalizeUserVariableName(Dialect::kFormula, "2fast"), "_fast");
  EXPECT_EQ(NormalizeUserVariableName(Dialect::kProgram, "2fast"), "2fast") << "the first character stays";
  EXPECT_EQ(NormalizeUserVariableName(Dialect::kProgram, "#A b\tc"), "#abc");
  EXPECT_EQ(NormalizeUserVariableName(Dialect::kFormula, "#A b\tc"), "_abc");

  std::vector<std::string> list;
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, ""), AddResult::kEmpty);
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, "q"), AddResult::kRefused);
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, " q "), AddResult::kRefused);
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, "SCREENW"), AddResult::kRefused);
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, "HMap"), AddResult::kRefused);
  EXPECT_EQ(AddUserVariable(Dialect::kProgram, list, "hmap"), AddResult::kAdded) << "hmap is free in programs";
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, "Speed"), AddResult::kAdded);
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, list, "speed "), AddResult::kDuplicate);
  EXPECT_EQ(list, (std::vector<std::string>{"hmap", "speed"}));

  std::vector<std::string> full;
  for (int k = 0; k < 255; ++k) ASSERT_EQ(AddUserVariable(Dialect::kFormula, full, "v" + std::to_string(k)), AddResult::kAdded);
  EXPECT_EQ(AddUserVariable(Dialect::kFormula, full, "one_more"), AddResult::kFull);
  EXPECT_EQ(AddUserVariable(Dialect::kProgram, full, "one_more"), AddResult::kAdded) << "programs have no such limit";
  EXPECT_TRUE(IsReservedName(Dialect::kProgram, "RANGE"));
  EXPECT_FALSE(IsReservedName(Dialect::kProgram, "HMAP"));
}

}  // namespace
}  // namespace nimbo::formula
