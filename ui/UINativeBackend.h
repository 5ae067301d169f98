// Where the window's backend of this system comes from.
#pragma once

#include "ui/UIBackend.h"

#include <memory>

/// The system's own backend: Win32 controls, or GTK 3. Null when there is none to be had, for
/// instance without a display; then nothing has been loaded or started either. Main thread, once.
std::unique_ptr<UIBackend> UIMakeNativeBackend();
