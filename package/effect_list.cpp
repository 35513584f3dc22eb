// The order below is the index order a host creates effects by. It is fixed
// here, in one place, so that it never depends on link order. Never reorder.
#include "core/registry.h"

namespace nimbo {

// Each creator is defined in its effect's folder.
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

const Registry& PackageRegistry() {
  static const Registry registry = [] {
    Registry registry;
    registry.Register(NewReScaler);  // 0
    registry.Register(NewLoPass);  // 1
    registry.Register(NewTimeBlur2);  // 2
    registry.Register(NewFastHBlur);  // 3
    registry.Register(NewRGBDisplacer);  // 4
    registry.Register(NewColorReducer);  // 5
    registry.Register(NewEvaluator3D);  // 6
    registry.Register(New3DSViewer);  // 7
    registry.Register(NewGlitter);  // 8
    registry.Register(NewRetinaKiller);  // 9
    registry.Register(NewBlob3D);  // 10
    registry.Register(NewDonkey);  // 11
    registry.Register(NewImplicitBeast);  // 12
    registry.Register(NewWAXViewer);  // 13
    registry.Register(NewWAXRotate);  // 14
    registry.Register(New3DStoWAX);  // 15
    registry.Register(NewChromaKeyPRO);  // 16
    registry.Register(NewXtractAlpha);  // 17
    registry.Register(NewColorTrafo);  // 18
    registry.Register(NewColorTracker);  // 19
    registry.Register(NewText3D);  // 20
    registry.Register(NewDistorter);  // 21
    registry.Register(NewWAXCombine);  // 22
    registry.Register(NewLowQ);  // 23
    return registry;
  }();
  return registry;
}

}  // namespace nimbo
