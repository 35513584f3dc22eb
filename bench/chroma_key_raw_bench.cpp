// Keys a clip of raw BGRA frames (as ffmpeg writes them with -f rawvideo
// -pix_fmt bgra) with ChromaKeyPRO's kernels and prints the per-frame CPU time
// of a frame copy, the direct kernel and the key table, one thread, for the
// side-by-side script chroma_key_vs_ffmpeg.sh.
//
//   bench_chroma_key_raw CLIP.bgra WIDTH HEIGHT [KEY_RRGGBB]
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "chroma_key_kernel.h"
#include "runtime/aligned_vector.h"

namespace {

double ThreadMs() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: %s CLIP.bgra WIDTH HEIGHT [KEY_RRGGBB]\n", argv[0]);
    return 2;
  }
  const long w = std::strtol(argv[2], nullptr, 10), h = std::strtol(argv[3], nullptr, 10);
  if (w <= 0 || h <= 0 || w > 16384 || h > 16384) {
    std::fprintf(stderr, "bench_chroma_key_raw: bad frame size %s x %s\n", argv[2], argv[3]);
    return 2;
  }
  std::FILE* clip = std::fopen(argv[1], "rb");
  if (!clip) {
    std::perror(argv[1]);
    return 1;
  }
  nimbo::ChromaKeyInputs in;
  in.key_rgb = argc > 4 ? uint32_t(std::strtoul(argv[4], nullptr, 16)) : 0x1830D0;
  const std::vector<nimbo::AlphaPoint> map = {{0.0f, 0.0f}, {0.3f, 1.0f}};
  const nimbo::ChromaKeyParams params = nimbo::MakeChromaKeyParams(in, nimbo::BuildAlphaLut(map));
  std::vector<uint32_t> table(nimbo::kKeyTableWords);
  nimbo::BuildKeyTable(table.data(), params, nimbo::ChromaKeyKernel());

  const size_t count = size_t(w) * size_t(h);
  // Frames 64-byte aligned, as the nimbo host gives them.
  nimbo::host::AlignedVector<uint32_t> frame(count), out(count), back(count, 0xFF606060);
  double copy_ms = 0, key_ms = 0, table_ms = 0;
  int frames = 0;
  while (std::fread(frame.data(), 4, count, clip) == count) {
    double t0 = ThreadMs();
    std::memcpy(out.data(), frame.data(), count * 4);
    double t1 = ThreadMs();
    nimbo::ChromaKeyKernel()(out.data(), back.data(), count, params);
    double t2 = ThreadMs();
    std::memcpy(out.data(), frame.data(), count * 4);
    double t3 = ThreadMs();
    nimbo::ApplyKeyTableKernel()(out.data(), back.data(), count, table.data(), 0);
    double t4 = ThreadMs();
    copy_ms += t1 - t0 + (t3 - t2);
    key_ms += t2 - t1;
    table_ms += t4 - t3;
    ++frames;
  }
  std::fclose(clip);
  if (frames == 0) {
    std::fprintf(stderr, "bench_chroma_key_raw: no whole frame of %ld x %ld in %s\n", w, h, argv[1]);
    return 1;
  }
  std::printf("frames %d copy_ms %.3f key_ms %.3f table_ms %.3f\n", frames, copy_ms / (2 * frames), key_ms / frames,
              table_ms / frames);
  return 0;
}
