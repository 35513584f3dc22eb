// The small vector, quaternion and matrix arithmetic of the scene.
#pragma once

#include <cmath>

#include "render3d/c3ds_scene.h"

namespace nimbo::scene3ds {

inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator*(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline float Dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 Cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline float Length(Vec3 a) { return std::sqrt(Dot(a, a)); }

inline Vec3 FaceNormal(Vec3 a, Vec3 b, Vec3 c) {
  const Vec3 n = Cross(b - a, c - a);
  const float length = Length(n);
  return length > 0 ? n * (1.0f / length) : Vec3{};
}

// The determinant of the upper-left 3x3 block.
inline float Determinant3(const Mat4& a) {
  const auto& m = a.m;
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

// The inverse of an affine matrix (last row 0 0 0 1); identity when the 3x3
// block is singular.
Mat4 InverseAffine(const Mat4& a);
Mat4 Multiply(const Mat4& a, const Mat4& b);
// T(position) * R(rotation) * S(scale) * T(-pivot), for column vectors.
Mat4 Compose(Vec3 position, Quat rotation, Vec3 scale, Vec3 pivot);

inline Quat operator*(Quat a, Quat b) {
  return {a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z, a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
          a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x, a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w};
}
inline Quat Conjugate(Quat q) { return {q.w, -q.x, -q.y, -q.z}; }
Quat Normalized(Quat q);
// exp of the pure quaternion (0, v): a turn by 2|v| about v.
Quat Exp(Vec3 v);

}  // namespace nimbo::scene3ds
