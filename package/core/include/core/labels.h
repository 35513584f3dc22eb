// Label bitmaps: the small picture a host shows for each effect, made once
// per resource number on first use and kept until the library unloads.
#pragma once

#include <cstdint>

#include "orrery/types.h"

namespace nimbo {

// The label resource of each effect, one number per effect in index order;
// the number also seeds the label's colours.
enum LabelResource : int32_t {
  kLabelReScaler = 12501,
  kLabelLoPass = 12502,
  kLabelTimeBlur2 = 12503,
  kLabelFastHBlur = 12504,
  kLabelRGBDisplacer = 12505,
  kLabelColorReducer = 12506,
  kLabelEvaluator3D = 12507,
  kLabelScene3DSViewer = 12508,
  kLabelGlitter = 12509,
  kLabelRetinaKiller = 12510,
  kLabelBlob3D = 12511,
  kLabelDonkey = 12512,
  kLabelImplicitBeast = 12513,
  kLabelWAXViewer = 12514,
  kLabelWAXRotate = 12515,
  kLabelScene3DStoWAX = 12516,
  kLabelChromaKeyPRO = 12517,
  kLabelXtractAlpha = 12518,
  kLabelColorTrafo = 12519,
  kLabelColorTracker = 12520,
  kLabelText3D = 12521,
  kLabelDistorter = 12522,
  kLabelWAXCombine = 12523,
  kLabelLowQ = 12524,
};

const orrery::Bitmap* LoadLabelBitmap(int32_t resource);

}  // namespace nimbo
