// Image sequences as input ("shot_%04d.png"): the numbered files that exist,
// read in increasing order from the lowest number. A gap in the numbers is
// an error naming the missing frame, unless gaps are allowed: then the
// frames that exist are read one after the other and a warning counts the
// missing ones.
#pragma once

#include <memory>
#include <string>

#include "media/frame_source.h"

namespace nimbo::host {

// Throws HostError when no file matches, or on a gap when !allow_gaps.
std::unique_ptr<FrameSource> OpenImageSequence(const std::string& pattern, bool allow_gaps);

}  // namespace nimbo::host
