// AlignedVector: a std::vector whose storage starts on a 64-byte boundary.
//
// Frames and effect memory are read and written with 32- and 64-byte SIMD
// loads and stores. A plain vector of a frame's size comes from mmap with
// malloc's 16-byte header in front, so every other 32-byte access would
// straddle two cache lines; FFmpeg aligns its frames to 64 bytes for the
// same reason.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace nimbo::host {

inline constexpr std::size_t kBufferAlignment = 64;

template <class T>
struct AlignedAllocator {
  using value_type = T;

  AlignedAllocator() = default;
  template <class U>
  AlignedAllocator(const AlignedAllocator<U>&) noexcept {}

  T* allocate(std::size_t n) {
    if (n > std::size_t(-1) / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(::operator new(n * sizeof(T), std::align_val_t(kBufferAlignment)));
  }
  void deallocate(T* p, std::size_t) noexcept { ::operator delete(p, std::align_val_t(kBufferAlignment)); }

  template <class U>
  bool operator==(const AlignedAllocator<U>&) const noexcept {
    return true;
  }
};

template <class T>
using AlignedVector = std::vector<T, AlignedAllocator<T>>;

}  // namespace nimbo::host
