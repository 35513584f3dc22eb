// Orrery host SDK: everything a host or a package includes.
#pragma once

#include "orrery/config_store.h"
#include "orrery/dynvar.h"
#include "orrery/effect.h"
#include "orrery/host_context.h"
#include "orrery/package.h"
#include "orrery/picture.h"
#include "orrery/pixels.h"
#include "orrery/services.h"
#include "orrery/types.h"
