#include "app/VelPatchRegistry.h"

#include "app/VelPatchRegistryTree.h"
#include "core/CXFileSystem.h"

VelPatchRegistry& VelPatchRegistry::Platform() {
    static auto* registry = new VelPatchRegistryTree([] {
        const CXString folder =
            CXFileSystem::GetKnownFolder(CXFileSystem::KnownFolder::LocalAppData);
        return folder.IsEmpty() ? CXString() : CXFileSystem::Join(folder, "velpatch-registry.dat");
    });
    return *registry;
}
