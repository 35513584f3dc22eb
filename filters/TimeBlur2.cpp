// TimeBlur2: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\TimeBlur2", kAuthor,
                                      "Effect,Filter,Time,Blur,", 0x0169BDBC6AB2405Cull, orrery::kEffectVersion};

class CTimeBlur2Dfx final : public CEffectBase {
 public:
  CTimeBlur2Dfx()
      : CEffectBase(kInfo, 12503, "helpfile/Effects/Filter/TimeBlur2/TimeBlur2.htm", sizeof(CTimeBlur2Dfx)) {}
};

}  // namespace

orrery::Effect* NewTimeBlur2() { return CreateEffect<CTimeBlur2Dfx>(); }

}  // namespace nimbo
