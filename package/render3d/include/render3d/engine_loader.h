// Obtaining an effect's 3D engine object from the engine library.
//
// The library (kEngineLibraryName) lives in the host's bin folder
// (CSettingsManager::GetBinPath) and is loaded anew for each object. Every
// failure is shown to the user in one message box, captioned "nb3D error",
// and the caller gets null: the effect then goes on without an engine and
// draws nothing until its next Initialize.
#pragma once

#include <string>

#include "nb3d/nb3d.h"

namespace nimbo {

// Where a newer engine can be had; the version conflict message ends with it.
inline constexpr const char* kEngineDownloadAddress = "https://nimbo.one/download/nb3d";

// The engine object for `effect`, or null after the failure was reported.
nb3D* CreateEngineObject(void* effect);

// Loads the library and finds its factory without creating an object;
// reports the same messages as CreateEngineObject when that fails.
bool CheckEngineLibrary();

// The full path the engine is loaded from.
std::string EngineLibraryPath();

// The same failure is shown once, not again for every effect that tries
// after it; a successful creation or this call re-arms the message.
void ForgetReportedEngineFailure();

}  // namespace nimbo
