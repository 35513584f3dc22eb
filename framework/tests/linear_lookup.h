// The store's lookup as a plain walk: from the top, the first "Settings",
// its first "ConfigData", then its "data" children in document order until
// one is named exactly `key`. The indexed store must answer what this answers
// for every key of every document; the settings benchmark measures both.
#pragma once

#include <optional>
#include <string>

#include "framework/xml_document.h"

namespace nimbo::testing {

inline std::optional<std::string> LinearLookup(XmlDocument& doc, const char* key) {
  doc.ResetPos();
  if (!doc.FindElem("Settings") || !doc.FindChildElem("ConfigData") || !doc.IntoElem()) return std::nullopt;
  while (doc.FindChildElem("data")) {
    bool named = false;
    if (doc.GetChildAttrib("name", &named) == key && named) return doc.GetChildData();
  }
  return std::nullopt;
}

}  // namespace nimbo::testing
