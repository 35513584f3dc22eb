// Keyframe tracks: reading them from their chunks, preparing their splines,
// and evaluating them at a frame.
#pragma once

#include <cstdint>
#include <vector>

#include "c3ds_chunks.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::scene3ds {

// Each reader fails (false) on a track that does not fit its chunk. Every
// key later than *end_frame raises it. The spline is prepared after reading.
bool ReadVectorTrack(const Chunk& c, Track<VectorKey>* track, int32_t* end_frame);
bool ReadRotationTrack(const Chunk& c, Track<RotationKey>* track, int32_t* end_frame);
bool ReadFloatTrack(const Chunk& c, Track<FloatKey>* track, int32_t* end_frame);
bool ReadMorphTrack(const Chunk& c, const std::vector<Mesh>& meshes, Track<MorphKey>* track, int32_t* end_frame);
bool ReadHideTrack(const Chunk& c, Track<HideKey>* track, int32_t* end_frame);

// Tangents of each key (Kochanek-Bartels: tension, continuity, bias, scaled
// for unequal key spacing) and, for rotations, the squad control points.
void PrepareTrack(Track<VectorKey>* track);
void PrepareTrack(Track<FloatKey>* track);
void PrepareTrack(Track<RotationKey>* track);

// The value at `frame`; an empty track leaves *value as it is. Before the
// first key the first key's value, after the last the last's.
void Evaluate(const Track<VectorKey>& track, float frame, Vec3* value);
void Evaluate(const Track<FloatKey>& track, float frame, float* value);
void Evaluate(const Track<RotationKey>& track, float frame, Quat* value);
void Evaluate(const Track<MorphKey>& track, float frame, int* mesh);
void Evaluate(const Track<HideKey>& track, float frame, bool* hidden);

// Time shaping inside a segment by the leaving key's ease-from and the
// arriving key's ease-to (constant acceleration, then constant speed, then
// constant deceleration).
float Ease(float u, float ease_from, float ease_to);

}  // namespace nimbo::scene3ds
