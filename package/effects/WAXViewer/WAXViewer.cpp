// WAXViewer: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {
    {-1, -1, "Background"}, {-1, -1, "WAX"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      4,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\WAXViewer",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x016D2330FD25D684ull,
                                      orrery::kEffectVersion};

class CWAXViewerDfx final : public CEffectBase {
 public:
  CWAXViewerDfx()
      : CEffectBase(kInfo, kLabelWAXViewer, "helpfile/Effects/3D/WAXViewer/WAXViewer.htm", sizeof(CWAXViewerDfx)) {}
};

}  // namespace

orrery::Effect* NewWAXViewer() { return CreateEffect<CWAXViewerDfx>(); }

}  // namespace nimbo
