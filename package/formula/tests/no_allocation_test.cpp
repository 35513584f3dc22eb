// Evaluation allocates nothing: the one-point evaluator, a program's run
// and the block evaluator's run are counted by a replaced operator new.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "formula/block_evaluator.h"
#include "formula/formula_dialect.h"
#include "formula/program.h"

namespace {
std::atomic<long> g_allocations{0};
}  // namespace

void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
// The replaced new takes its memory from malloc, so free is the matching
// release; GCC cannot see that pairing and would warn.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace nimbo::formula {
namespace {

TEST(Evaluation, AllocatesNothing) {
  const FormulaResult f = CompileFormula("sin(a*pi)+max(i,j)^2-range(t,0,1)/(b-0.5)", {"i", "j", "a", "b"}, {});
  ASSERT_TRUE(f.ok);
  Program program;
  ASSERT_TRUE(program.Compile("R=sqrt(X*X+Y*Y)\nU=angle(Y,X)\nFUN=R-1+U*0", "FUN", {"U"}, {{"size", 2}}).ok);
  const long counted = g_allocations;
  BlockEvaluator block(f.code);
  ASSERT_GT(g_allocations - counted, 0) << "the counter sees the evaluator's own set-up";
  std::vector<float> i(1000, 1.5f), out(1000);
  const Column columns[] = {{kI, i.data()}};

  const long before = g_allocations;
  float sum = 0;
  for (int n = 0; n < 100; ++n) {
    sum += Evaluate(Dialect::kFormula, f.code.data());
    sum += program.Evaluate(0, float(n), 2, 3) + program.Output(0);
  }
  block.Run(EngineOf(Dialect::kFormula).variables, columns, i.size(), out.data());
  EXPECT_EQ(g_allocations - before, 0);
  volatile float sink = sum;  // keeps the runs from being optimised away
  (void)sink;
}

}  // namespace
}  // namespace nimbo::formula
