// Per-frame time at 1920x1080 of TimeBlur2, Retina Killer, LowQ, LoPass and
// Fast h-Blur, beside a one-core frame copy measured in the same run, so the
// figures read as ratios on a shared, noisy machine.
//
// The effects run through the package's registry with the nimbo host's own
// effect context (memory service, sliders, dynamic variables), the path a
// real render takes; the Retina Killer and TimeBlur2 kernels are also timed alone in
// their scalar and SIMD versions.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "bench_effects.h"
#include "core/cpu.h"
#include "fast_hblur_kernel.h"
#include "retina_killer_kernel.h"
#include "runtime/aligned_vector.h"
#include "runtime/effect_host.h"
#include "time_blur_kernel.h"

namespace {

// Frames and effect memory 64-byte aligned, as the nimbo host gives them.
template <class T>
using Buffer = nimbo::host::AlignedVector<T>;

constexpr int32_t kWidth = 1920;
constexpr int32_t kHeight = 1080;
constexpr size_t kPixels = size_t(kWidth) * kHeight;

struct Frames {
  Frames() : a(kPixels), b(kPixels), out(kPixels) {
    std::mt19937 rng(1);
    for (size_t i = 0; i < kPixels; ++i) {
      a[i] = rng();
      b[i] = rng();
    }
  }
  Buffer<uint32_t> a, b, out;
};

Frames& TestFrames() {
  static Frames frames;
  return frames;
}

void BM_FrameCopy(benchmark::State& state) {
  Frames& f = TestFrames();
  for (auto _ : state) {
    std::memcpy(f.out.data(), f.a.data(), kPixels * 4);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

// The same copy fed the two frames the effects below alternate between, so
// its working set (three frames) is theirs.
void BM_FrameCopyAlternating(benchmark::State& state) {
  Frames& f = TestFrames();
  int64_t frame = 0;
  for (auto _ : state) {
    std::memcpy(f.out.data(), (frame++ & 1) ? f.b.data() : f.a.data(), kPixels * 4);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameCopyAlternating)->Unit(benchmark::kMillisecond);

// A copy of frames that are not in the cache, as frames arriving from a
// decoder or camera are: it cycles through 12 source and 12 destination
// frames (190 MB), more than any cache holds. TimeBlur2 streams 8 ring
// frames and a sum buffer the same way, so this is its fair yardstick; the
// hot copy above measures the cache, not the memory.
void BM_FrameCopyStreaming(benchmark::State& state) {
  constexpr int kFrames = 12;
  static std::vector<Buffer<uint32_t>> sources(kFrames, Buffer<uint32_t>(kPixels, 0x01020304u));
  static std::vector<Buffer<uint32_t>> targets(kFrames, Buffer<uint32_t>(kPixels));
  int frame = 0;
  for (auto _ : state) {
    std::memcpy(targets[frame].data(), sources[frame].data(), kPixels * 4);
    benchmark::ClobberMemory();
    frame = (frame + 1) % kFrames;
  }
}
BENCHMARK(BM_FrameCopyStreaming)->Unit(benchmark::kMillisecond);

// Renders alternating frames through the effect named `name`; `setup`
// adjusts the effect's controls after its configuration exchange. Frames
// rendered before the timed loop take the first frames' allocations out of
// the figure.
template <class Setup>
void RunEffect(benchmark::State& state, const char* name, Setup setup) {
  Frames& f = TestFrames();
  nimbo::host::EffectHost host(kWidth, kHeight, 25.0);
  std::unique_ptr<orrery::Effect> fx = nimbo::bench::CreateEffectNamed(name);
  if (!fx) return state.SkipWithError("no such effect");
  fx->SetHostContext(&host);
  fx->UpdateConfig();
  fx->Initialize();
  setup(host);
  orrery::Screen a{kWidth, kHeight, f.a.data()}, b{kWidth, kHeight, f.b.data()};
  orrery::Screen out{kWidth, kHeight, f.out.data()};
  int64_t frame = 0;
  auto render = [&] {
    const orrery::Screen* input = (frame++ & 1) ? &b : &a;
    orrery::InputList inputs{&input, 1};
    return fx->Render(inputs, &out) != 0;
  };
  nimbo::bench::WarmUp(render);
  for (auto _ : state) {
    if (!render()) state.SkipWithError("Render failed");
    benchmark::ClobberMemory();
  }
}

void BM_TimeBlur2_n8(benchmark::State& state) {
  RunEffect(state, "TimeBlur2", [](nimbo::host::EffectHost&) {});  // n = 8 is the default
}
BENCHMARK(BM_TimeBlur2_n8)->Unit(benchmark::kMillisecond);

void BM_RetinaKiller(benchmark::State& state) {
  RunEffect(state, "Retina Killer", [](nimbo::host::EffectHost&) {});
}
BENCHMARK(BM_RetinaKiller)->Unit(benchmark::kMillisecond);

void BM_LowQ_defaults(benchmark::State& state) {
  RunEffect(state, "LowQ", [](nimbo::host::EffectHost&) {});
}
BENCHMARK(BM_LowQ_defaults)->Unit(benchmark::kMillisecond);

void BM_LoPass(benchmark::State& state) {
  RunEffect(state, "LoPass", [](nimbo::host::EffectHost&) {});
}
BENCHMARK(BM_LoPass)->Unit(benchmark::kMillisecond);

void BM_FastHBlur(benchmark::State& state) {
  const float radius = float(state.range(0));
  RunEffect(state, "Fast h-Blur",
            [radius](nimbo::host::EffectHost& host) { host.FindDynVar("Radius")->value = radius; });
}
BENCHMARK(BM_FastHBlur)->Arg(1)->Arg(8)->Arg(64)->Arg(100)->Arg(101)->Arg(255)->Unit(benchmark::kMillisecond);

// ---- the kernels alone, scalar against SIMD ----

void RetinaKernel(benchmark::State& state, nimbo::RetinaFn fn) {
  Frames& f = TestFrames();
  Buffer<uint8_t> fatigue(kPixels * 4);
  int64_t frame = 0;
  for (auto _ : state) {
    fn((frame++ & 1) ? f.b.data() : f.a.data(), f.out.data(), fatigue.data(), kPixels, {176, 8});
    benchmark::ClobberMemory();
  }
}
void BM_RetinaKernel_Scalar(benchmark::State& state) { RetinaKernel(state, nimbo::RetinaScalar); }
void BM_RetinaKernel_Sse2(benchmark::State& state) { RetinaKernel(state, nimbo::RetinaSse2); }
void BM_RetinaKernel_Avx2(benchmark::State& state) {
  if (!nimbo::CpuHasAvx2()) return state.SkipWithError("no AVX2");
  RetinaKernel(state, nimbo::RetinaAvx2);
}
BENCHMARK(BM_RetinaKernel_Scalar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RetinaKernel_Sse2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RetinaKernel_Avx2)->Unit(benchmark::kMillisecond);

void TimeBlurKernel(benchmark::State& state, nimbo::TimeBlurStepFn fn) {
  Frames& f = TestFrames();
  std::vector<Buffer<uint32_t>> ring(8, Buffer<uint32_t>(kPixels));
  Buffer<uint16_t> sum(kPixels * 4);
  int64_t frame = 0;
  for (auto _ : state) {
    fn((frame & 1) ? f.b.data() : f.a.data(), f.out.data(), ring[frame % 8].data(), sum.data(), kPixels, {3});
    ++frame;
    benchmark::ClobberMemory();
  }
}
void BM_TimeBlurKernel_Scalar(benchmark::State& state) { TimeBlurKernel(state, nimbo::TimeBlurStepScalar); }
void BM_TimeBlurKernel_Sse2(benchmark::State& state) { TimeBlurKernel(state, nimbo::TimeBlurStepSse2); }
void BM_TimeBlurKernel_Avx2(benchmark::State& state) {
  if (!nimbo::CpuHasAvx2()) return state.SkipWithError("no AVX2");
  TimeBlurKernel(state, nimbo::TimeBlurStepAvx2);
}
// The packed sums (6 bytes a pixel), which the effect keeps for n <= 16.
void BM_TimeBlurKernel_PackedAvx2(benchmark::State& state) {
  if (!nimbo::CpuHasAvx2()) return state.SkipWithError("no AVX2");
  Frames& f = TestFrames();
  std::vector<Buffer<uint32_t>> ring(8, Buffer<uint32_t>(kPixels));
  Buffer<uint8_t> sums(kPixels * 8);
  int64_t frame = 0;
  for (auto _ : state) {
    nimbo::TimeBlurPackedStepAvx2((frame & 1) ? f.b.data() : f.a.data(), f.out.data(), ring[frame % 8].data(),
                                  sums.data(), kPixels, {3});
    ++frame;
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TimeBlurKernel_Scalar)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TimeBlurKernel_Sse2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TimeBlurKernel_Avx2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TimeBlurKernel_PackedAvx2)->Unit(benchmark::kMillisecond);

// TimeBlur2 stores four bytes (ring, two of sum, output) for every byte a
// copy stores. With a 128x128 frame and eight ring slots all in the cache,
// these two show that floor apart from memory.
constexpr size_t kSmallPixels = 128 * 128;
void BM_FrameCopy_InCache(benchmark::State& state) {
  Buffer<uint32_t> from(kSmallPixels, 0x01020304u), to(kSmallPixels);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), kSmallPixels * 4);
    benchmark::ClobberMemory();
  }
}
void BM_TimeBlurKernel_InCache(benchmark::State& state) {
  Buffer<uint32_t> from(kSmallPixels, 0x01020304u), to(kSmallPixels);
  std::vector<Buffer<uint32_t>> ring(8, Buffer<uint32_t>(kSmallPixels));
  Buffer<uint16_t> sum(kSmallPixels * 4);
  const nimbo::TimeBlurStepFn fn = nimbo::TimeBlurStepKernel();
  int64_t frame = 0;
  for (auto _ : state) {
    fn(from.data(), to.data(), ring[frame++ % 8].data(), sum.data(), kSmallPixels, {3});
    benchmark::ClobberMemory();
  }
}
// Fast h-Blur's row kernel over 1920-pixel rows that stay in cache, two at
// a time as the effect runs it: its arithmetic without the memory traffic.
void BM_BoxBlurRows_InCache(benchmark::State& state) {
  constexpr size_t kWidth = 1920;
  const size_t rows = kSmallPixels / kWidth & ~size_t(1);
  const nimbo::BoxBlurParams params = nimbo::MakeBoxBlurParams(int32_t(state.range(0)));
  Buffer<uint32_t> from(rows * kWidth), to(rows * kWidth);
  std::mt19937 rng(5);
  for (auto& v : from) v = rng();
  Buffer<uint32_t> scratch_a(nimbo::BoxBlurScratchSize(kWidth, params.radius));
  Buffer<uint32_t> scratch_b(scratch_a.size());
  uint32_t* const scratch[2] = {scratch_a.data(), scratch_b.data()};
  const nimbo::BoxBlurSpanFn span = nimbo::BoxBlurSpanKernel();
  for (auto _ : state) {
    for (size_t y = 0; y < rows; y += 2) {
      const uint32_t* src[2] = {from.data() + y * kWidth, from.data() + (y + 1) * kWidth};
      uint32_t* const dst[2] = {to.data() + y * kWidth, to.data() + (y + 1) * kWidth};
      nimbo::BoxBlurRows(src, dst, scratch, 2, kWidth, params, span);
    }
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FrameCopy_InCache)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TimeBlurKernel_InCache)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BoxBlurRows_InCache)->Arg(1)->Arg(64)->Arg(100)->Arg(101)->Arg(255)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
