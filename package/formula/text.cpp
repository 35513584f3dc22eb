#include "formula/text.h"

namespace nimbo::formula {

Text Widen(std::string_view bytes) {
  Text text;
  text.reserve(bytes.size());
  for (const char byte : bytes) {
    if (byte == 0) break;
    text.push_back(char32_t(static_cast<unsigned char>(byte)));
  }
  return text;
}

void SubstituteName(Text& text, const Text& name, uint32_t code) {
  if (name.empty()) return;
  // One pass from the left gives the same text as restarting after every
  // replacement: a token is a word character where the name's characters
  // were, so no replacement makes or breaks a match elsewhere.
  size_t out = 0;
  size_t in = 0;
  const size_t n = text.size();
  while (in < n) {
    const bool match = text.compare(in, name.size(), name) == 0 &&
                       (out == 0 || !IsWordChar(text[out - 1])) &&
                       (in + name.size() >= n || !IsWordChar(text[in + name.size()]));
    if (match) {
      text[out++] = char32_t(code);
      in += name.size();
    } else {
      text[out++] = text[in++];
    }
  }
  text.resize(out);
}

void SubstituteName(Text& text, std::string_view name, uint32_t code) { SubstituteName(text, Widen(name), code); }

}  // namespace nimbo::formula
