// The desktop of a running X server: its size, and a real cursor to move
// (ColorTracker's "attach_mouse"). libX11 is opened at run time, so the host
// neither links it nor needs it on a machine without a display.
#pragma once

#include "orrery/services.h"

namespace nimbo::host {

// The X11 desktop when $DISPLAY names a server we can open, else null. The
// connection stays open to the end of the process: packages may move the
// cursor until they unload.
orrery::DesktopService* OpenX11Desktop();

}  // namespace nimbo::host
