// Character classes and name substitution over formula text.
//
// Classes: below 256 the plain ASCII classes of the character (128..255 are
// in none of them); every token (256 and up) is a lower-case letter, so it
// is also a letter and a letter-or-digit, never a digit or a blank.
#pragma once

#include <string_view>

#include "formula/code.h"

namespace nimbo::formula {

inline bool IsLower(uint32_t c) { return c >= kFirstToken || (c >= 'a' && c <= 'z'); }
inline bool IsLetter(uint32_t c) { return IsLower(c) || (c >= 'A' && c <= 'Z'); }
inline bool IsDigit(uint32_t c) { return c >= '0' && c <= '9'; }
inline bool IsWordChar(uint32_t c) { return IsLetter(c) || IsDigit(c) || c == '_'; }
inline bool IsBlank(uint32_t c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Equal when the bytes match with ASCII letters compared regardless of case
// (names and file keys are read this way).
inline bool SameIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t k = 0; k < a.size(); ++k) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    if (lower(a[k]) != lower(b[k])) return false;
  }
  return true;
}

// Bytes widened to codes, up to the first zero byte.
Text Widen(std::string_view bytes);

// Replaces every whole-word occurrence of `name` in `text` by the single
// code `code`. A match must not have a letter, digit or '_' (tokens
// included) right before or right after it. An empty name matches nothing.
void SubstituteName(Text& text, const Text& name, uint32_t code);
void SubstituteName(Text& text, std::string_view name, uint32_t code);

}  // namespace nimbo::formula
