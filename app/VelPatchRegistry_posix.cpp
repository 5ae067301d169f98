#include "app/VelPatchRegistry.h"

#include "app/VelPatchRegistryTree.h"
#include "core/CXFileSystem.h"

VelPatchRegistry& VelPatchRegistry::Platform() {
    static VelPatchRegistryTree* registry = new VelPatchRegistryTree(
        CXFileSystem::Join(CXFileSystem::GetKnownFolder(CXFileSystem::KnownFolder::LocalAppData),
                           "velpatch-registry.dat"));
    return *registry;
}
