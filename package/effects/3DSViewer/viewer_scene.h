// What 3DSViewer draws of a loaded .3ds scene, apart from the engine: the
// playback frame for a time, the posed meshes as triangle batches per
// material in world space, the scene's camera, and the scene's lights folded
// into the engine's one light (see viewer_lights.h).
//
// Geometry: a mesh's vertices sit in the file where the modeller left them
// (its MESH_MATRIX says where that is); the keyframer's world matrix places
// the object at the current frame, so a vertex is drawn at
// world * inverse(mesh matrix) * vertex.
//
// Axes: the reader stores points as (x, z, y) of the file. Swapping two axes
// mirrors the scene, and a camera in a mirrored scene shows a mirrored
// picture (text on a texture reads backwards, left and right trade places).
// The viewer therefore turns the reader's points into the engine's world as
// (x, y, -z): with the swap, a turn of the file's z-up world onto the
// engine's y-up one, no mirror. The file's +x shows on the right and +z up
// when its camera looks along +y, as in 3D Studio's front view. Faces keep
// the file's winding (reversed where the drawn matrix mirrors), counter-
// clockwise from outside as the engine's front faces are.
//
// Faces are flat shaded: each corner takes its face's normal (the reader
// keeps no smoothing groups). Texture coordinates come per face corner from
// the file; a mesh without them gets them laid on from the front (x and y
// over the mesh's bounds), so a texture input still shows on it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nb3d/nb3d.h"
#include "render3d/c3ds_scene.h"
#include "render3d/scene3d.h"

namespace nimbo::viewer3ds {

// Playback rate of the keyframes at speed 1.
inline constexpr float kFramesPerSecond = 30.0f;

// The keyframer frame shown `seconds` after the start (already scaled by the
// speed). With `loop` the range start..end repeats, every frame shown once
// per round (end + 1 wraps to start; negative times run backwards through
// it); without, the time holds at the first and last frame.
float PlaybackFrame(int32_t start, int32_t end, double seconds, bool loop);

// One material's triangles of the current frame.
struct DrawBatch {
  int32_t material = 0;               // scene material index
  std::vector<nb3D::Vertex> vertices;  // three per triangle, world space
  std::vector<uint32_t> indices;
};

struct Bounds {
  float min[3] = {0, 0, 0}, max[3] = {0, 0, 0};
  bool empty = true;
  void Add(const float p[3]);
  void Centre(float out[3]) const;
  float Radius() const;  // half the diagonal; 0 when empty
};

// The camera a frame is drawn with: where it is, and the projection.
struct ViewCamera {
  SceneCamera camera;
  float fov_y_degrees = kSceneFovDegrees;
};

class ViewerScene {
 public:
  // Reads a .3ds file; on failure the previous scene is gone and the
  // reader's error code is returned (C3DSScene::GetErrorText names it),
  // with 4 also for an empty file. 0 on success.
  int32_t Load(const std::string& path);
  void Clear();
  bool Loaded() const { return loaded_; }
  const std::string& Path() const { return path_; }
  const scene3ds::C3DSScene& Scene() const { return scene_; }

  // Poses every object at keyframer `frame` (C3DSScene::SetFrame).
  void Pose(float frame);

  // The posed meshes as batches, one per scene material that has faces
  // (visible meshes only; hidden ones and hidden tracks are left out).
  void BuildBatches(std::vector<DrawBatch>* batches) const;

  // Everything the meshes cover at frame `start` (computed on load).
  const Bounds& StartBounds() const { return start_bounds_; }

  // The first camera of the scene at the current pose, with its field of
  // view turned into the engine's vertical one for `aspect` (width /
  // height). False when the scene has no camera.
  bool SceneCameraAt(float aspect, ViewCamera* view) const;
  // A camera that frames the start bounds from the front and a little above.
  ViewCamera FramingCamera() const;

 private:
  scene3ds::C3DSScene scene_;
  std::string path_;
  bool loaded_ = false;
  Bounds start_bounds_;
};

// Two-sided faces seen from behind are lit as their back: each triangle
// (three consecutive corners) whose normal faces away from `eye` gets it
// turned round, so a model with faces wound the wrong way still takes light.
void NormalsTowards(const float eye[3], nb3D::Vertex* vertices, size_t count);

// A point of the reader's axes in the engine's world: (x, y, -z).
inline scene3ds::Vec3 ToEngine(scene3ds::Vec3 p) { return {p.x, p.y, -p.z}; }

// Engine world position of a posed object that may have no keyframer node:
// the translation of its pose's world matrix when `animated`, else
// `fallback` (both in the reader's axes).
scene3ds::Vec3 PosedPosition(const scene3ds::Pose& pose, bool animated, scene3ds::Vec3 fallback);

// Whether a node of `type` refers to object `index`.
bool HasNode(const scene3ds::C3DSScene& scene, scene3ds::NodeType type, int32_t index);

}  // namespace nimbo::viewer3ds
