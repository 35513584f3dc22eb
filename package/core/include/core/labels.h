// Label bitmaps: the small picture a host shows for each effect, made once
// per resource number on first use and kept until the library unloads.
#pragma once

#include <cstdint>

#include "orrery/types.h"

namespace nimbo {

const orrery::Bitmap* LoadLabelBitmap(int32_t resource);

}  // namespace nimbo
