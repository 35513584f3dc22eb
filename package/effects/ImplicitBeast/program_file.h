// ImplicitBeast's program files: plain text, so any editor opens them.
//
// The file starts with the surface program as it is typed in the editor
// (its last line assigns FUN). Optional sections follow, each opened by a
// header line of its own:
//
//   [texture]     the texture program (outputs U, V)
//   [normal]      the normal program (outputs NX, NY, NZ)
//   [variables]   one user variable a line: NAME MINIMUM MAXIMUM [POSITION]
//
// Headers are found case-blind and with blanks around them ignored; a
// header line has no '=', so the program dialect would ignore it anyway.
// Line numbers in error messages count from the start of the section's
// program (the surface program's from the top of the file).
//
// Reading takes at most kMaxProgramFileBytes and refuses anything that is
// not text (a zero byte), a variable line it cannot read, or a name the
// naming rules refuse; the caller then compiles the result before taking
// it, so a file loads whole or not at all. Writing goes to a file beside
// the target that is renamed over it only when complete.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "implicit_programs.h"

namespace nimbo::implicit {

inline constexpr const char* kMessageCannotOpen = "Couldn't open file";
inline constexpr const char* kMessageCannotCreate = "Couldn't create file";
inline constexpr const char* kProgramFilter = "Program Files (*.txt)|*.txt|All Files (*.*)|*.*||";
inline constexpr size_t kMaxProgramFileBytes = size_t(256) << 10;

std::string FormatProgramFile(const ProgramSet& set);
// "" and `set` replaced, or the reason the bytes are refused (`set` unchanged).
std::string ParseProgramFile(std::string_view bytes, ProgramSet& set);

// "" on success, otherwise the message to show (caption "Error").
std::string ReadProgramFile(const std::string& path, ProgramSet& set);
std::string WriteProgramFile(const std::string& path, const ProgramSet& set);

}  // namespace nimbo::implicit
