#include "matrix.h"

#include <cmath>
#include <cstring>

namespace nb3d {
namespace {

void Cross(const float a[3], const float b[3], float out[3]) {
  out[0] = a[1] * b[2] - a[2] * b[1];
  out[1] = a[2] * b[0] - a[0] * b[2];
  out[2] = a[0] * b[1] - a[1] * b[0];
}

bool Normalize(float v[3]) {
  float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (!(length > 1e-12f)) return false;
  for (int i = 0; i < 3; ++i) v[i] /= length;
  return true;
}

}  // namespace

void Identity(float out[16]) {
  std::memset(out, 0, 16 * sizeof(float));
  out[0] = out[5] = out[10] = out[15] = 1.0f;
}

void Multiply(const float a[16], const float b[16], float out[16]) {
  for (int col = 0; col < 4; ++col) {
    for (int row = 0; row < 4; ++row) {
      float sum = 0.0f;
      for (int k = 0; k < 4; ++k) sum += a[k * 4 + row] * b[col * 4 + k];
      out[col * 4 + row] = sum;
    }
  }
}

void Perspective(float fov_y_radians, float aspect, float near_plane, float far_plane, float out[16]) {
  float f = 1.0f / std::tan(fov_y_radians * 0.5f);
  std::memset(out, 0, 16 * sizeof(float));
  out[0] = f / aspect;
  out[5] = f;
  out[10] = (far_plane + near_plane) / (near_plane - far_plane);
  out[11] = -1.0f;
  out[14] = 2.0f * far_plane * near_plane / (near_plane - far_plane);
}

void LookAt(const float eye[3], const float target[3], float roll, float out[16]) {
  float forward[3] = {target[0] - eye[0], target[1] - eye[1], target[2] - eye[2]};
  if (!Normalize(forward)) {
    forward[0] = 0.0f;
    forward[1] = 0.0f;
    forward[2] = -1.0f;
  }
  float up[3] = {0.0f, 1.0f, 0.0f};
  float right[3];
  Cross(forward, up, right);
  if (!Normalize(right)) {
    const float z_up[3] = {0.0f, 0.0f, 1.0f};
    Cross(forward, z_up, right);
    Normalize(right);
  }
  float true_up[3];
  Cross(right, forward, true_up);
  // Roll turns the right and up axes about the viewing axis.
  float c = std::cos(roll), s = std::sin(roll);
  float r[3], u[3];
  for (int i = 0; i < 3; ++i) {
    r[i] = c * right[i] + s * true_up[i];
    u[i] = -s * right[i] + c * true_up[i];
  }
  Identity(out);
  for (int i = 0; i < 3; ++i) {
    out[i * 4 + 0] = r[i];
    out[i * 4 + 1] = u[i];
    out[i * 4 + 2] = -forward[i];
  }
  out[12] = -(r[0] * eye[0] + r[1] * eye[1] + r[2] * eye[2]);
  out[13] = -(u[0] * eye[0] + u[1] * eye[1] + u[2] * eye[2]);
  out[14] = forward[0] * eye[0] + forward[1] * eye[1] + forward[2] * eye[2];
}

void FlipClipY(float m[16]) {
  for (int col = 0; col < 4; ++col) m[col * 4 + 1] = -m[col * 4 + 1];
}

void ScreenToClip(float width, float height, float out[16]) {
  Identity(out);
  out[0] = 2.0f / width;
  out[5] = 2.0f / height;  // y down on screen, and the frame is drawn flipped
}

}  // namespace nb3d
