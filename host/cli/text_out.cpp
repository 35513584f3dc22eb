#include "cli/text_out.h"

#include <cmath>
#include <cstdio>

namespace nimbo::host {

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += char(c);
        }
    }
  }
  return out + "\"";
}

std::string JsonNumber(double value) { return std::isfinite(value) ? NumberText(value) : "null"; }

}  // namespace nimbo::host
