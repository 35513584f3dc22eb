// User variables (the dynamic variables a user adds in a formula editor),
// with the naming rules of both dialects.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "formula/code.h"

namespace nimbo::formula {

// The formula dialect refuses to add a user variable past this many.
inline constexpr size_t kMaxFormulaUserVariables = 255;

// The text an editor shows (caption "Info") when the entry field is empty.
inline constexpr const char* kEmptyNameMessage =
    "Enter the name of the new variable in the\nfield below the add button, then click the\nadd button again.";
inline constexpr const char* kEmptyNameCaption = "Info";

// A typed name as the dialect keeps it: folded to lower case, blanks and
// tabs removed, every character after the first that is not a-z or 0-9
// made '_'. The formula dialect makes the first character '_' too unless
// it is a-z; the program dialect leaves the first character as typed (after
// folding), an asymmetry kept on purpose.
std::string NormalizeUserVariableName(Dialect dialect, std::string_view typed);

// Whether no user variable may take `name` (case ignored). The formula
// dialect's list has "hmap", the program dialect's does not.
bool IsReservedName(Dialect dialect, std::string_view name);

enum class AddResult {
  kAdded,
  kEmpty,      // nothing typed: the editor shows kEmptyNameMessage
  kRefused,    // reserved or shorter than two characters: the field is cleared
  kDuplicate,  // already in the list: nothing added
  kFull,       // formula dialect, 255 entries already
};

// Adds a user variable to `names` (the list, in order) following the rules
// above; `*added` receives the name as kept.
AddResult AddUserVariable(Dialect dialect, std::vector<std::string>& names, std::string_view typed,
                          std::string* added = nullptr);

}  // namespace nimbo::formula
