// The package's effects, one creator each, and the author line they share.
#pragma once

#include "orrery/effect.h"
#include "package/registry.h"

namespace nimbo {

inline constexpr const char* kAuthor = "nimbo one - live video effects";

orrery::Effect* NewReScaler();
orrery::Effect* NewLoPass();
orrery::Effect* NewTimeBlur2();
orrery::Effect* NewFastHBlur();
orrery::Effect* NewRGBDisplacer();
orrery::Effect* NewColorReducer();
orrery::Effect* NewEvaluator3D();
orrery::Effect* New3DSViewer();
orrery::Effect* NewGlitter();
orrery::Effect* NewRetinaKiller();
orrery::Effect* NewBlob3D();
orrery::Effect* NewDonkey();
orrery::Effect* NewImplicitBeast();
orrery::Effect* NewWAXViewer();
orrery::Effect* NewWAXRotate();
orrery::Effect* New3DStoWAX();
orrery::Effect* NewChromaKeyPRO();
orrery::Effect* NewXtractAlpha();
orrery::Effect* NewColorTrafo();
orrery::Effect* NewColorTracker();
orrery::Effect* NewText3D();
orrery::Effect* NewDistorter();
orrery::Effect* NewWAXCombine();
orrery::Effect* NewLowQ();

}  // namespace nimbo
