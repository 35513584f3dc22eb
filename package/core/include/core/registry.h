// The effect registry: a fixed table of creator functions filled once, in a
// fixed order, before the host can call anything. The index of an effect is
// its position in that order and is the only thing a host passes to create
// one, so the order lives in one list (effect_list.cpp), never in link order.
#pragma once

#include <cstdint>

#include "orrery/effect.h"

namespace nimbo {

using EffectCreator = orrery::Effect* (*)();

class Registry {
 public:
  static constexpr int32_t kCapacity = 0x400;

  // Appends `creator`; a registration past the capacity is dropped silently,
  // on purpose (a host never sees a half-registered effect).
  void Register(EffectCreator creator);
  int32_t Count() const { return count_; }
  // A new effect, or null for an index out of range or a failed creation.
  orrery::Effect* Create(int32_t index) const;

 private:
  EffectCreator creators_[kCapacity] = {};
  int32_t count_ = 0;
};

// The package's registry, filled with the 24 effects on first use.
const Registry& PackageRegistry();

// Creator of effect class E with the ordinary new, null when allocation fails.
template <class E>
orrery::Effect* CreateEffect() {
  try {
    return new E();
  } catch (...) {
    return nullptr;
  }
}

}  // namespace nimbo
