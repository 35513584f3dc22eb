// The steps of a load, each over the file image held in memory. Each returns
// false when the file is malformed where it reads; the caller turns that
// into the step's error code.
#pragma once

#include <cstdint>

#include "c3ds_chunks.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::scene3ds {

struct C3DSScene::Builder {
  C3DSScene& scene;
  Chunk root;            // M3DMAGIC, checked against the file's size
  int running_index = 0;  // the next object's index (materials take the first ones)

  bool ReadMaterials();   // materials.cpp
  bool ReadObjects();     // objects.cpp
  bool ReadKeyframer();   // keyframer.cpp
};

// MDATA among the root's sub-chunks. False when the root's list is
// malformed before it; *found is false when there is none.
bool FindMData(const Chunk& root, Chunk* mdata, bool* found);

}  // namespace nimbo::scene3ds
