// Per-frame cost at 1920x1080 of the keying kernels (ChromaKeyPRO scalar,
// SSE2, AVX2, AVX-512, the key table's build and apply; XtractAlpha; ColorTrafo), each
// beside the cost of copying one frame on the same core in the same run.
// Compare the ratios, not the absolute times: the machines are shared.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "chroma_key_footage.h"
#include "chroma_key_kernel.h"
#include "shared/colour_matrix.h"
#include "xtract_alpha_kernel.h"
#include "runtime/aligned_vector.h"
#include "core/cpu.h"

namespace {

using namespace nimbo;

// Frames 64-byte aligned, as the nimbo host gives them.
using Frame = host::AlignedVector<uint32_t>;

constexpr int32_t kW = 1920, kH = 1080;
constexpr size_t kPixels = size_t(kW) * kH;

const bench::Footage& Clip() {
  static const bench::Footage footage = bench::MakeFootage(kW, kH, 0x1830D0, 1);
  return footage;
}

const Frame& Background() {
  static const Frame back = bench::MakeFootage(kW, kH, 0x808080, 2).frame;
  return back;
}

ChromaKeyParams BenchParams() {
  ChromaKeyInputs in;
  in.key_rgb = 0x1830D0;
  const std::vector<AlphaPoint> map = {{0.0f, 0.0f}, {0.3f, 1.0f}};
  return MakeChromaKeyParams(in, BuildAlphaLut(map));
}

void BM_FrameCopy(benchmark::State& state) {
  Frame out(kPixels);
  for (auto _ : state) {
    std::memcpy(out.data(), Clip().frame.data(), kPixels * 4);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

// The input is restored outside the timed part: the kernel works in place.
void RunKey(benchmark::State& state, ChromaKeyFn fn, const ChromaKeyParams& params,
            const Frame& frame) {
  Frame out(kPixels);
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(out.data(), frame.data(), kPixels * 4);
    state.ResumeTiming();
    fn(out.data(), Background().data(), kPixels, params);
    benchmark::ClobberMemory();
  }
}
void RunKey(benchmark::State& state, ChromaKeyFn fn) { RunKey(state, fn, BenchParams(), Clip().frame); }
void BM_KeyScalar(benchmark::State& state) { RunKey(state, ChromaKeyScalar); }
void BM_KeySse2(benchmark::State& state) { RunKey(state, ChromaKeySse2); }
void BM_KeyAvx2(benchmark::State& state) {
  if (!CpuHasAvx2()) return state.SkipWithError("no AVX2");
  RunKey(state, ChromaKeyAvx2);
}
void BM_KeyAvx512(benchmark::State& state) {
  if (!CpuHasKeyAvx512()) return state.SkipWithError("no AVX-512 (F, BW, DQ, VBMI)");
  RunKey(state, ChromaKeyAvx512);
}
BENCHMARK(BM_KeyScalar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeySse2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyAvx2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyAvx512)->Unit(benchmark::kMillisecond);

// Where the time goes: the same clip with the identity alpha map (no LUT
// lookup), and frames that are all screen (every pixel keyed) or all subject
// (no pixel keyed); for the AVX2 and the AVX-512 version.
bool Supported(ChromaKeyFn fn, benchmark::State& state) {
  if (fn == ChromaKeyAvx2 && !CpuHasAvx2()) return state.SkipWithError("no AVX2"), false;
  if (fn == ChromaKeyAvx512 && !CpuHasKeyAvx512()) return state.SkipWithError("no AVX-512 (F, BW, DQ, VBMI)"), false;
  return true;
}
template <ChromaKeyFn kFn>
void BM_KeyIdentityMap(benchmark::State& state) {
  if (!Supported(kFn, state)) return;
  ChromaKeyInputs in;
  in.key_rgb = 0x1830D0;
  RunKey(state, kFn, MakeChromaKeyParams(in, BuildAlphaLut({})), Clip().frame);
}
template <ChromaKeyFn kFn>
void BM_KeyAllScreen(benchmark::State& state) {
  if (!Supported(kFn, state)) return;
  // The screen colour with up to 8 steps of noise per channel: all inside the cone.
  static const Frame screen = [] {
    Frame px(kPixels);
    std::mt19937 rng(3);
    for (uint32_t& p : px) p = 0xFF1830D0u + (rng() & 0x070707) - 0x040404;
    return px;
  }();
  RunKey(state, kFn, BenchParams(), screen);
}
template <ChromaKeyFn kFn>
void BM_KeyAllSubject(benchmark::State& state) {
  if (!Supported(kFn, state)) return;
  static const Frame subject(kPixels, 0xFFC08050);
  RunKey(state, kFn, BenchParams(), subject);
}
BENCHMARK(BM_KeyIdentityMap<ChromaKeyAvx2>)->Name("BM_KeyAvx2IdentityMap")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyAllScreen<ChromaKeyAvx2>)->Name("BM_KeyAvx2AllScreen")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyAllSubject<ChromaKeyAvx2>)->Name("BM_KeyAvx2AllSubject")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyIdentityMap<ChromaKeyAvx512>)->Name("BM_KeyAvx512IdentityMap")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyAllScreen<ChromaKeyAvx512>)->Name("BM_KeyAvx512AllScreen")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyAllSubject<ChromaKeyAvx512>)->Name("BM_KeyAvx512AllSubject")->Unit(benchmark::kMillisecond);

void BM_KeyTableBuild(benchmark::State& state) {
  std::vector<uint32_t> table(kKeyTableWords);
  const ChromaKeyParams params = BenchParams();
  for (auto _ : state) {
    BuildKeyTable(table.data(), params, ChromaKeyKernel());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_KeyTableBuild)->Unit(benchmark::kMillisecond);

void RunTable(benchmark::State& state, KeyTableApplyFn fn) {
  std::vector<uint32_t> table(kKeyTableWords);
  BuildKeyTable(table.data(), BenchParams(), ChromaKeyKernel());
  Frame out(kPixels);
  for (auto _ : state) {
    state.PauseTiming();
    std::memcpy(out.data(), Clip().frame.data(), kPixels * 4);
    state.ResumeTiming();
    fn(out.data(), Background().data(), kPixels, table.data(), 0);
    benchmark::ClobberMemory();
  }
}
void BM_KeyTableApplyScalar(benchmark::State& state) { RunTable(state, ApplyKeyTableScalar); }
void BM_KeyTableApplySimd(benchmark::State& state) { RunTable(state, ApplyKeyTableKernel()); }
BENCHMARK(BM_KeyTableApplyScalar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_KeyTableApplySimd)->Unit(benchmark::kMillisecond);

void BM_XtractAlpha(benchmark::State& state) {
  Frame out(kPixels);
  for (auto _ : state) {
    XtractAlphaKernel()(Clip().frame.data(), out.data(), kPixels, false);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_XtractAlpha)->Unit(benchmark::kMillisecond);

void BM_ColorTrafo(benchmark::State& state) {
  const ColorMatrix m = ComputeColorMatrix({0.7f, 1.3f, 1.1f});
  Frame out(kPixels);
  for (auto _ : state) {
    ColorMatrixKernel()(Clip().frame.data(), out.data(), kPixels, m);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_ColorTrafo)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
