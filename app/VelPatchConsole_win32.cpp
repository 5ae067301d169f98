#include "app/VelPatchConsole.h"

// A program with windows has no console here; it is ended through its window.

bool VelPatchConsole::IsTerminal() {
    return false;
}

void VelPatchConsole::CatchInterrupts() {}

bool VelPatchConsole::IsInterrupted() {
    return false;
}
