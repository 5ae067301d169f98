// A registry of the program's own, for systems that have none, and for tests.
#pragma once

#include "app/VelPatchRegistry.h"
#include "dn/DNValue.h"

#include <functional>

/// Keeps everything in one text file, which is read before each call and replaced after each
/// change; without a file, in memory. In the file a folder stands for a hive ("HKLM"), in it one
/// for each key by its whole path, with the values by name: "text:" and the text, or "number:" and
/// decimals. What else a damaged file holds is passed over. A file that can't be read isn't
/// written. No key is made for the ones above it: they exist by what lies below them.
class VelPatchRegistryTree : public VelPatchRegistry {
public:
    /// In memory.
    VelPatchRegistryTree() = default;
    /// In a file, whose folder is made as needed; `findPath` is asked for it before each use, and
    /// gives an empty one if there is none.
    explicit VelPatchRegistryTree(std::function<CXString()> findPath)
        : m_findPath(std::move(findPath)) {}

    CXResult SetString(Root root, const CXString& path, const CXString& name,
                       const CXString& data) override;
    CXResult SetNumber(Root root, const CXString& path, const CXString& name,
                       int32_t number) override;
    CXResult DeleteValue(Root root, const CXString& path, const CXString& name) override;
    CXResult DeleteKey(Root root, const CXString& path) override;
    CXResult ListStrings(Root root, const CXString& path,
                         std::vector<VelPatchRegistryValue>& out) override;
    CXResult ReadString(Root root, const CXString& path, const CXString& name,
                        CXString& out) override;

private:
    bool Load();
    CXResult Save();
    CXResult SetText(Root root, const CXString& path, const CXString& name, const CXString& text);

    const std::function<CXString()> m_findPath; ///< unset: in memory
    DNValueRef m_tree;
};
