// A folder of a build, listed.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <vector>

/// A file or folder of a tree.
struct VelPatchTreeEntry {
    CXString path; ///< relative to the tree, "/" as separator
    bool isFolder = false;
    uint64_t size = 0;    ///< bytes; 0 for a folder
    uint32_t mode = 0;    ///< POSIX permission bits; 0 where the system has none
    int64_t modified = 0; ///< ms since the Unix epoch

    /// "posix:%04o", or empty where the system has no such bits.
    CXString GetPermissions() const;
    absl::string_view GetName() const;
};

/// Whether Windows makes a file of just this name: it would take dots and blanks off the end, and
/// make one of another name.
bool IsNameForWindows(absl::string_view name);

/// Whether a path matches a glob, which may be of any length: "*" stands for any bytes of one name,
/// "**" for slashes too, "?" for one character that is no slash; all else for itself. A glob
/// without a slash is held against the last name alone.
bool MatchesGlob(absl::string_view path, absl::string_view glob);

/// The entries of a folder, parents before their children and otherwise sorted by the bytes of
/// their names, so that the same folder always gives the same list. Checksums are taken when they
/// are first asked for. One thread.
class VelPatchTree {
public:
    /// Lists the folder. Links, devices, pipes and sockets can't be told in a patch: the first one
    /// ends the scan with kCXResultNotSupported. On failure `problem` says why, in plain words
    /// with the path; the tree is then empty. A folder "patcher-temp" at the top, left by a patch
    /// that was cut off, is passed over, and so is what matches one of the globs `ignored`.
    CXResult Scan(const CXString& folder, const std::vector<CXString>& ignored, CXString& problem);
    CXResult Scan(const CXString& folder, CXString& problem) { return Scan(folder, {}, problem); }

    const CXString& GetFolder() const { return m_folder; }
    const std::vector<VelPatchTreeEntry>& GetEntries() const { return m_entries; }
    /// Where the entry lies.
    CXString GetFullPath(size_t index) const;
    /// MD5 of a file, 32 lower-case hexadecimal characters; empty if it can't be read. The answer
    /// is kept.
    const CXString& GetChecksum(size_t index);
    /// The first entry that isn't as it was when the folder was listed (size and time of change of
    /// files), has come or has gone since, or the empty text. Lists the folder again.
    CXString FindChanged() const;
    /// Sum of the sizes of all files, bytes.
    uint64_t GetTotalSize() const;

private:
    CXResult ScanFolder(const CXString& relative, std::vector<CXString>& pending,
                        const std::vector<CXString>& ignored, CXString& problem);

    CXString m_folder;
    std::vector<CXString> m_ignored;
    std::vector<VelPatchTreeEntry> m_entries;
    std::vector<CXString> m_checksums; ///< as long as m_entries; empty: not yet taken
};
