#include "app/VelPatchRegistry.h"

namespace {

VelPatchRegistry*& Replacement() {
    static VelPatchRegistry* registry = nullptr;
    return registry;
}

} // namespace

VelPatchRegistry& VelPatchRegistry::Current() {
    return Replacement() != nullptr ? *Replacement() : Platform();
}

VelPatchRegistry* VelPatchRegistry::SetCurrent(VelPatchRegistry* registry) {
    VelPatchRegistry* earlier = Replacement();
    Replacement() = registry;
    return earlier;
}
