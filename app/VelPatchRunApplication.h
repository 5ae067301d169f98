// The part of a run that has windows, from the application object to its end.
#pragma once

#include "ui/CXUIApplication.h"
#include "ui/UIBackend.h"

#include <functional>
#include <memory>

/// What the run is made of. The functions are called once, on the main thread.
struct VelPatchApplicationParts {
    std::unique_ptr<UIBackend> backend;
    /// The service of the windows stands by then. Must give an object.
    std::function<std::unique_ptr<CXUIApplication>()> makeApplication;
    /// Whether this instance is about to go because a later stage was started, and so takes no
    /// command line of a second instance. Unset: never.
    std::function<bool()> isLeaving;
    /// Called when all is cleared away but the windows' service, which goes last. Unset: nothing.
    std::function<void()> stopWindowServices;
};

/// Makes the application object, runs the main loop, and clears away in this order: windows that
/// are left (by force), the application object, the program itself if it was told to delete
/// itself, the workers, what windows need of the system, the windows' service. Meanwhile command
/// lines of second instances are taken, and bring the window to the front.
void RunVelPatchApplication(VelPatchApplicationParts parts);
