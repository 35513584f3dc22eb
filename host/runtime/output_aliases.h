// Refuses a run whose outputs would overwrite one of its inputs or each
// other, however the paths are spelled: "./x/../in.mp4", a hard link or a
// symbolic link name the same file as "in.mp4". Files that exist are
// compared by device and inode; names that do not exist yet by their
// resolved folder and name. Image sequences count as every numbered file
// their pattern can name.
#pragma once

#include <string>
#include <vector>

namespace nimbo::host {

// A path as the command line gave it, with the option that gave it ("-i",
// "-o", "--values", ...), for the message.
struct RolePath {
  std::string option;
  std::string path;
};

// Throws HostError naming both paths when an output is the same file as an
// input or as another output. Reads nothing but the file system's names.
void CheckOutputsDoNotAlias(const std::vector<RolePath>& inputs, const std::vector<RolePath>& outputs);

}  // namespace nimbo::host
