// E3D files: a formula set as a sequence of records, each an at-sign, the
// key, a zero byte, the value as text and a zero byte. Integers are decimal.
//
// Keys in writing order: "imax", "jmax", "hmap", "loopi", "loopj", "nvars"
// (the switched-on user variables), "dynvar0", "dynvar1", ... (their names),
// "info", "a".."h", "x", "y", "z", "uvmode1", "u", "v", "nx", "ny", "nz",
// "uvmode2", "u2", "v2", "nx2", "ny2", "nz2", "cx", "cy", "cz", "tx", "ty",
// "tz", "roll", "zoom", "front", "back", "ipattern", "jpattern".
//
// Reading is forgiving and bounded: each key is looked up among the records
// from the start of the file, case ignored; a record cut short (no zero after
// its value) ends at the end of the file, one whose key never ends ends the
// records. A missing key takes its default (so a missing "hmap", "loopi" or
// "loopj" is off); formulas longer than 999 characters are cut; "nvars" is
// capped at 255 and the user variables are recreated from their names by the
// naming rules (a refused or repeated name is skipped). A file with no record
// at all is not an E3D file and loads nothing.
//
// Writing is all or nothing: the file is written beside the target and
// renamed over it only when complete, so a failed save never harms an older
// file.
#pragma once

#include <string>
#include <string_view>

#include "formula_set.h"

namespace nimbo::e3d {

// The messages the effect shows (caption "Error").
inline constexpr const char* kMessageCannotOpen = "Couldn't open file";
inline constexpr const char* kMessageCannotCreate = "Couldn't create file";
inline constexpr const char* kE3DFilter = "E3D Files (*.e3d)|*.e3d|All Files (*.*)|*.*||";
inline constexpr const char* kE3DExtension = "e3d";

// Longest file the reader takes in; a longer one is read up to this size.
inline constexpr size_t kMaxE3DBytes = size_t(4) << 20;

std::string FormatE3D(const FormulaSet& set);
// Replaces `set` with what `bytes` hold. False (and `set` unchanged) when
// they hold no record.
bool ParseE3D(std::string_view bytes, FormulaSet& set);

// "" on success, otherwise the message to show.
std::string LoadE3DFile(const std::string& path, FormulaSet& set);
std::string SaveE3DFile(const std::string& path, const FormulaSet& set);

}  // namespace nimbo::e3d
