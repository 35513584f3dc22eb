// Morph editing for the Distorter's setup dialog (its line editor): the
// dialog reaches the effect's morph set through this, never the effect's
// class.
#pragma once

#include <cstdint>
#include <functional>

#include "distorter_map.h"
#include "orrery/effect.h"

namespace nimbo::distorter {

class MorphEditing {
 public:
  // Runs `edit` on the morph set under the effect's lock. grid_w x grid_h is
  // the map grid (the output size from the last Initialize) that
  // MorphSet::AddLinePair scales 0..1 coordinates by. Edits that change the
  // set make the next frame rebuild the maps.
  virtual void EditMorphs(const std::function<void(MorphSet& set, int32_t grid_w, int32_t grid_h)>& edit) = 0;

 protected:
  ~MorphEditing() = default;
};

// The editing side of a Distorter; null for any other effect.
MorphEditing* AsMorphEditing(orrery::Effect* effect);

}  // namespace nimbo::distorter
