#include "core/registry.h"

namespace nimbo {

void Registry::Register(EffectCreator creator) {
  if (count_ < kCapacity) creators_[count_++] = creator;
}

orrery::Effect* Registry::Create(int32_t index) const {
  if (index < 0 || index >= count_) return nullptr;
  return creators_[index]();
}

}  // namespace nimbo
