// Character classes and name substitution over formula text.
//
// Classes: below 256 the plain ASCII classes of the character (128..255 are
// in none of them); every token (256 and up) is a lower-case letter, so it
// is also a letter and a letter-or-digit, never a digit or a blank.
#pragma once

#include <string_view>
#include <type_traits>

#include "formula/code.h"

namespace nimbo::formula {

inline bool IsLower(uint32_t c) { return c >= kFirstToken || (c >= 'a' && c <= 'z'); }
inline bool IsLetter(uint32_t c) { return IsLower(c) || (c >= 'A' && c <= 'Z'); }
inline bool IsDigit(uint32_t c) { return c >= '0' && c <= '9'; }
inline bool IsWordChar(uint32_t c) { return IsLetter(c) || IsDigit(c) || c == '_'; }
inline bool IsBlank(uint32_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Equal when the codes match with ASCII letters compared regardless of case;
// every other code (bytes 128..255, tokens) must match exactly. The
// package's one case-blind comparison: formula names against the reserved
// ones, E3D keys, program sections and outputs, 3DSViewer's picture files.
template <class CharA, class CharB>
bool SameCodesIgnoringCase(std::basic_string_view<CharA> a, std::basic_string_view<CharB> b) {
  if (a.size() != b.size()) return false;
  const auto lower = [](uint32_t c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; };
  // Through the unsigned type first, so a byte above 127 stays one code.
  const auto code = [](auto c) { return uint32_t(std::make_unsigned_t<decltype(c)>(c)); };
  for (size_t k = 0; k < a.size(); ++k) {
    if (lower(code(a[k])) != lower(code(b[k]))) return false;
  }
  return true;
}
inline bool SameIgnoringCase(std::string_view a, std::string_view b) { return SameCodesIgnoringCase(a, b); }
// Formula text (a name read from a program) against plain bytes.
inline bool SameIgnoringCase(std::u32string_view a, std::string_view b) { return SameCodesIgnoringCase(a, b); }

// Bytes widened to codes, up to the first zero byte.
Text Widen(std::string_view bytes);

// Replaces every whole-word occurrence of `name` in `text` by the single
// code `code`. A match must not have a letter, digit or '_' (tokens
// included) right before or right after it. An empty name matches nothing.
void SubstituteName(Text& text, const Text& name, uint32_t code);
void SubstituteName(Text& text, std::string_view name, uint32_t code);

}  // namespace nimbo::formula
