#include "app/VelPatchEntry.h"

void VelPatchEntryPlatform::StartWindowServices() {}

void VelPatchEntryPlatform::StopWindowServices() {}
