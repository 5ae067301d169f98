// The registry, as far as this program reads and writes it.
#pragma once

#include "app/config/VelPatchRegistryEdits.h"
#include "core/CXResult.h"
#include "core/CXString.h"

#include <vector>

/// Keys ("\" as separator) hold named values, and other keys. Names don't know letter case. The
/// value with an empty name is the key's default value. Main thread.
class VelPatchRegistry {
public:
    using Root = VelPatchRegistryRoot;

    virtual ~VelPatchRegistry() = default;
    /// Sets a value; the key and those above it are made as needed.
    virtual CXResult SetString(Root root, const CXString& path, const CXString& name,
                               const CXString& data) = 0;
    virtual CXResult SetNumber(Root root, const CXString& path, const CXString& name,
                               int32_t number) = 0;
    virtual CXResult DeleteValue(Root root, const CXString& path, const CXString& name) = 0;
    /// Removes a key with its values; one that holds other keys stays and is kCXResultAccessDenied.
    virtual CXResult DeleteKey(Root root, const CXString& path) = 0;
    /// The text values of a key, in the system's order.
    virtual CXResult ListStrings(Root root, const CXString& path,
                                 std::vector<VelPatchRegistryValue>& out) = 0;
    /// One text value.
    virtual CXResult ReadString(Root root, const CXString& path, const CXString& name,
                                CXString& out) = 0;

    /// The one in use: the system's own (on Linux "velpatch-registry.dat" in the user's data
    /// folder) unless replaced.
    static VelPatchRegistry& Current();
    /// Replaces it (not owned; null restores the system's). Returns the earlier one.
    static VelPatchRegistry* SetCurrent(VelPatchRegistry* registry);
    static VelPatchRegistry& Platform();
};
