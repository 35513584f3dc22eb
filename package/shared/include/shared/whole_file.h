// Files read and written whole, the way the effects' file commands need
// them: a read is bounded (a huge or endless file cannot exhaust memory),
// and a write goes to a file beside the target that is renamed over it only
// when every byte is out, so a failed save never leaves a half-written file
// or harms an older one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nimbo {

// Reads at most `limit` bytes of the file into `bytes`. False when it
// cannot be opened or a read fails. A caller that must refuse larger files
// asks for one byte more than it takes.
bool ReadFileUpTo(const std::string& path, size_t limit, std::string* bytes);

// Writes `bytes` as the file `path`, all or nothing. False when the file
// cannot be created or written; an older file at `path` is then untouched.
bool WriteFileWhole(const std::string& path, std::string_view bytes);

}  // namespace nimbo
