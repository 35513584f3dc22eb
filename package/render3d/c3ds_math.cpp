#include "c3ds_math.h"

namespace nimbo::scene3ds {

Mat4 InverseAffine(const Mat4& a) {
  const auto& m = a.m;
  const float det = Determinant3(a);
  Mat4 r;
  if (det == 0 || !std::isfinite(det)) return r;
  const float s = 1.0f / det;
  r.m[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) * s;
  r.m[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) * s;
  r.m[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) * s;
  r.m[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) * s;
  r.m[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) * s;
  r.m[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) * s;
  r.m[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) * s;
  r.m[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) * s;
  r.m[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) * s;
  for (int row = 0; row < 3; ++row)
    r.m[row][3] = -(r.m[row][0] * m[0][3] + r.m[row][1] * m[1][3] + r.m[row][2] * m[2][3]);
  return r;
}

Mat4 Multiply(const Mat4& a, const Mat4& b) {
  Mat4 r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j] + a.m[i][3] * b.m[3][j];
  return r;
}

Mat4 Compose(Vec3 position, Quat q, Vec3 scale, Vec3 pivot) {
  const float xx = q.x * q.x, yy = q.y * q.y, zz = q.z * q.z;
  const float xy = q.x * q.y, xz = q.x * q.z, yz = q.y * q.z;
  const float wx = q.w * q.x, wy = q.w * q.y, wz = q.w * q.z;
  const float rot[3][3] = {{1 - 2 * (yy + zz), 2 * (xy - wz), 2 * (xz + wy)},
                           {2 * (xy + wz), 1 - 2 * (xx + zz), 2 * (yz - wx)},
                           {2 * (xz - wy), 2 * (yz + wx), 1 - 2 * (xx + yy)}};
  const float s[3] = {scale.x, scale.y, scale.z};
  const float p[3] = {pivot.x, pivot.y, pivot.z};
  const float t[3] = {position.x, position.y, position.z};
  Mat4 r;
  for (int row = 0; row < 3; ++row) {
    float shift = t[row];
    for (int col = 0; col < 3; ++col) {
      r.m[row][col] = rot[row][col] * s[col];
      shift -= r.m[row][col] * p[col];
    }
    r.m[row][3] = shift;
  }
  return r;
}

Quat Normalized(Quat q) {
  const float n = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
  if (!(n > 0) || !std::isfinite(n)) return Quat{};
  return {q.w / n, q.x / n, q.y / n, q.z / n};
}

Quat Exp(Vec3 v) {
  const float angle = Length(v);
  if (!(angle > 1e-12f)) return {1, v.x, v.y, v.z};
  const float s = std::sin(angle) / angle;
  return {std::cos(angle), v.x * s, v.y * s, v.z * s};
}

}  // namespace nimbo::scene3ds
