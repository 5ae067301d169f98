#include "patch/PatchPaths.h"

bool UsesWindowsPaths() {
    return true;
}
