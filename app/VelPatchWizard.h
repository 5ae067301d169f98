// The run of the player's program that has a wizard.
#pragma once

#include <functional>

/// Runs the wizard in the system's windows, or, where there are none to be had, does what the
/// command line told to start, in words. Blocks until it is over; for VelPatchEntryHooks.
void RunVelPatchWizard(const std::function<void()>& stopWindowServices);
