// The one-point stack machine: one pass over the words, a switch per word,
// no allocation, no lock, no virtual call.
#include <bit>
#include <cmath>

#include "formula/code.h"
#include "function_math.h"

namespace nimbo::formula {

float Run(const uint32_t* code, const float* variables, float* stack) {
  float* top = stack;  // the next free slot
  for (;;) {
    switch (*code++) {
      case kEnd:
        return stack[0];
      case kConst:
        *top++ = std::bit_cast<float>(*code++);
        break;
      case kVar:
        *top++ = variables[*code++];
        break;
      case kCall: {
        const uint32_t index = *code++;
        if (index >= kFunctionCount) return 0.0f;
        const int args = kFunctionArgs[index];
        top -= args;
        const double a = args > 0 ? double(top[0]) : 0.0;
        const double b = args > 1 ? double(top[1]) : 0.0;
        const double c = args > 2 ? double(top[2]) : 0.0;
        *top++ = float(CallFunction(index, a, b, c));
        break;
      }
      case kAdd:
        --top;
        top[-1] = top[-1] + top[0];
        break;
      case kSub:
        --top;
        top[-1] = top[-1] - top[0];
        break;
      case kMul:
        --top;
        top[-1] = top[-1] * top[0];
        break;
      case kDiv:
        --top;
        top[-1] = top[-1] / top[0];
        break;
      case kPow:
        --top;
        top[-1] = Power(top[-1], top[0]);
        break;
      case kNeg:
        top[-1] = -top[-1];
        break;
      default:
        return 0.0f;
    }
  }
}

int StackDepth(const uint32_t* code) {
  int depth = 0;
  int deepest = 0;
  for (;;) {
    switch (*code++) {
      case kEnd: return deepest;
      case kConst:
      case kVar: ++code, ++depth; break;
      case kCall: {
        const uint32_t index = *code++;
        if (index >= kFunctionCount) return deepest;
        depth += 1 - kFunctionArgs[index];
        break;
      }
      case kNeg: break;
      case kAdd: case kSub: case kMul: case kDiv: case kPow: --depth; break;
      default: return deepest;
    }
    if (depth > deepest) deepest = depth;
  }
}

}  // namespace nimbo::formula
