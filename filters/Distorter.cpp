// Distorter: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\Distorter", kAuthor,
                                      "Effect,Filter,", 0x0024E2E1633AF2E7ull, orrery::kEffectVersion};

class CDistorterDfx final : public CEffectBase {
 public:
  CDistorterDfx()
      : CEffectBase(kInfo, 12522, "helpfile/Effects/Filter/Distorter/Distorter.htm", sizeof(CDistorterDfx)) {}
};

}  // namespace

orrery::Effect* NewDistorter() { return CreateEffect<CDistorterDfx>(); }

}  // namespace nimbo
