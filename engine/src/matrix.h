// 4x4 matrices for the engine: column-major float[16], as GL takes them.
#pragma once

namespace nb3d {

void Identity(float out[16]);
// out = a * b (b applied first). `out` may alias neither input.
void Multiply(const float a[16], const float b[16], float out[16]);
// Standard right-handed perspective (camera looks down -z).
void Perspective(float fov_y_radians, float aspect, float near_plane, float far_plane, float out[16]);
// View matrix of a camera at `eye` looking at `target`, world y up, turned
// by `roll` radians about the viewing axis. When eye and target coincide
// the camera looks down -z; when it looks straight up or down, world z
// serves as "up" instead.
void LookAt(const float eye[3], const float target[3], float roll, float out[16]);
// Turns y over in clip space. The engine draws every frame upside down so
// that the framebuffer's first row (GL's bottom) is the Screen's top row and
// Present can read rows straight into the Screen.
void FlipClipY(float m[16]);
// Screen space (output pixels, origin at the centre, y down) to clip space,
// already flipped like FlipClipY.
void ScreenToClip(float width, float height, float out[16]);

}  // namespace nb3d
