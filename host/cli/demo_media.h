// Media the demo generates in memory, so it needs no files:
//   shapes       a red ball, a green square and a yellow bar moving over a
//                colour gradient (for filters and trackers)
//   blue screen  a figure moving in front of a blue backdrop (the chroma
//                input of the keyer)
//   landscape    sky, sun and hills (the keyer's background, 3D backgrounds)
//   title        scrolling text in the built-in font (texture inputs)
//   WAX box, ball, torus
//                voxel volumes as WAX volume screens (demo_volume.h), for
//                the WAX effects' volume inputs
// Every picture is drawn straight at the size asked for, so inputs of any
// negotiated size are sharp.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/frame_source.h"

namespace nimbo::host {

enum class DemoMedia { kShapes, kBlueScreen, kLandscape, kTitle, kWaxBox, kWaxBall, kWaxTorus };

// A source of `frames` frames at 25 fps, natively width x height.
std::unique_ptr<FrameSource> MakeDemoSource(DemoMedia media, int32_t width, int32_t height, int64_t frames);

// One picture of `media` at frame `frame` (0 .. frames-1 of `frames`).
void DrawDemoFrame(DemoMedia media, FrameBuffer& out, int64_t frame, int64_t frames);

}  // namespace nimbo::host
