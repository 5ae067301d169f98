// The file-system facade: free operations on program paths.
#pragma once

#include "core/CXFileDriver.h"
#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <vector>

/// The single place where the program touches the file system other than through CXStreamFile.
/// Paths use "/"; a network path starts with "//". Nothing raises a dialog. Any thread.
namespace CXFileSystem {

/// True on Windows, where names hold no backslash, know devices and ignore letter case.
bool HasWindowsPaths();

// ---- Path text (pure; Windows forms are known on every system) ----

/// a + "/" + b without doubling the "/"; an empty `a` gives b; no check for an absolute b.
CXString Join(absl::string_view a, absl::string_view b);
/// What stands before the last "/"; empty when there is none. A root keeps its "/" ("/a" gives
/// "/", "C:/a" gives "C:/"); the parent of a root is empty.
CXString GetParent(absl::string_view path);
/// What stands behind the last "/".
CXString GetFileName(absl::string_view path);
/// Name without its extension and the dot.
CXString GetStem(absl::string_view path);
/// What stands behind the last "." of the name; a leading-dot name has none.
CXString GetExtension(absl::string_view path);
/// "/...", "//...", "X:/" or "X:\".
bool IsAbsolute(absl::string_view path);
/// "/", "X:", "X:/", "//server/share" with or without a trailing "/".
bool IsRoot(absl::string_view path);
/// Drops "." and empty middle segments, folds "x/..", keeps a leading "//", never climbs above a
/// root, drops a trailing "/" except at a root; "\" becomes "/" in Windows-looking texts only.
CXString NormalisePath(absl::string_view path);
/// Removes trailing "/" and "\" but never empties a lone "/".
CXString StripTrailingSeparators(absl::string_view path);
/// Brings a text that a person typed or another system gave into the program form: "\" becomes
/// "/" always on Windows, elsewhere only in texts that look like Windows paths.
CXString FromForeignPath(absl::string_view path);
/// The platform form of a Windows path: from 230 bytes on an absolute path gets the extended
/// prefix and backslashes. Pure, UTF-8 in and out.
CXString GetExtendedPath(absl::string_view path);
/// "file:%s" for a relative path, "file:///%s" with a drive, "file://%s" for a network path.
CXString ToFileURI(absl::string_view path);
/// False for the device names (CON, AUX, PRN, NUL, COM1-9, LPT1-9, whatever the extension), for
/// empty names, ".", "..", and names with a separator, NUL, or a byte that Windows refuses.
bool IsValidFileName(absl::string_view name);
/// A path that the system could open: not empty, no NUL byte, and on Windows every component,
/// the drive part excepted, a valid file name or a dot segment.
bool IsValidPath(absl::string_view path);
/// The nearest valid file name: offending bytes replaced, device names and empty names changed.
CXString SanitiseFileName(absl::string_view name);
/// True if `path` equals `folder` or lies below it, at a component boundary (text only).
bool IsWithin(absl::string_view folder, absl::string_view path);
/// The permission bits of "posix:0755"; false for another prefix, no digits, a digit above 7 or a
/// value above 07777.
bool ParsePosixPermissions(absl::string_view text, uint32_t& mode);

// ---- Queries ----

/// Something is there (a dangling link counts). An odd failure is logged and reads as false.
bool Exists(const CXString& path);
/// A folder, links followed.
bool IsDirectory(const CXString& path);
/// A symbolic link or junction.
bool IsLink(const CXString& path);
/// Attributes; links followed or not.
CXResult GetAttributes(const CXString& path, bool followLinks, CXFileAttributes& out);
/// Sorted entries of a folder.
CXResult Enumerate(const CXString& folder, std::vector<CXFileEntry>& out);
/// Sum of the sizes of all files below; links are not followed.
uint64_t GetDirectorySize(const CXString& folder);
/// Absolute and normalised; a relative path is joined to the current folder; empty stays empty.
CXString MakeAbsolute(absl::string_view path);
/// MakeAbsolute; links are not resolved.
CXString GetCanonicalPath(absl::string_view path);
/// True if `path` (below or equal to `root`) passes through a link that leads out of `root`. With
/// `testLast` the last component counts too. What doesn't exist or can't be looked at leads
/// nowhere, a link to nothing leads outside.
bool LeadsOutside(const CXString& root, const CXString& path, bool testLast);

// ---- Changes ----

/// Moves without replacing: an existing `newPath` is a failure.
CXResult Rename(const CXString& newPath, const CXString& existingPath);
/// One level; an existing folder is success, an existing file kCXResultAlreadyExists.
CXResult CreateDirectory(const CXString& path);
/// The folder and its parents.
CXResult CreateDirectories(const CXString& path);
/// Removes a file or link. A path held exclusively by this process, or in use elsewhere, gives
/// kCXResultInUse.
CXResult DeleteFile(const CXString& path);
/// Removes an empty folder; in use gives kCXResultInUse.
CXResult DeleteDirectory(const CXString& path);
/// Removes a tree. Links are removed, never followed. Goes on after a failure; the first failure
/// is the result. Empty and root paths are refused with kCXResultAccessDenied.
CXResult DeleteRecursive(const CXString& path);
/// Copies one file's bytes and mode, links followed. On failure no partial copy stays. A file onto
/// itself, also by another name of it, is kCXResultAccessDenied.
CXResult CopyFile(const CXString& source, const CXString& destination, bool overwrite);
/// Copies a tree; stops at the first failure. Links to files become files, a link to a folder is
/// a failure, and so is a destination inside the source.
CXResult CopyDirectory(const CXString& source, const CXString& destination);
/// Puts `replacement` in place of `target`; a crash at any moment leaves one good copy (the old
/// file waits as target + ".abku"). On failure the replacement is deleted.
CXResult ReplaceWithBackup(const CXString& target, const CXString& replacement);
/// Repairs an interrupted ReplaceWithBackup.
CXResult RecoverBackup(const CXString& target);
/// Makes an empty file of a name not yet taken in `parent` and returns its path; empty on failure.
/// Null parent is logged.
CXString CreateUniqueFileName(const CXString* parent, absl::string_view name);
/// "w32acl:%s" (Windows) or "posix:%04o"; false if it can't be read.
bool GetFilePermissions(const CXString& path, CXString& out);
/// Applies a permission text; empty and unknown texts are success. Bad digits kCXResultUnusable.
CXResult SetFilePermissions(const CXString& path, const CXString& text);
/// Gives `to` the POSIX permission bits of `from` (nothing on Windows).
CXResult CopyMode(const CXString& from, const CXString& to);
/// Gives a file or folder, never what a link leads to, the owner of the folder that it lies in, if
/// this process is the system's administrator: what it makes for a user stays the user's. Elsewhere
/// success without a change.
CXResult GiveToFolderOwner(const CXString& path);
/// Has a path removed at the next start of the system; a failure where there is no such thing.
CXResult DeleteAtReboot(const CXString& path);
/// Extension of shortcuts with its dot: ".lnk" or ".desktop".
absl::string_view GetLinkExtension();
/// Makes a shortcut that starts `target` in `workingFolder`; the extension is appended to a path
/// that lacks it.
CXResult CreateLink(const CXString& path, const CXString& target, const CXString& workingFolder,
                    const CXString& name);

// ---- Volumes ----

/// Mounted volumes in the system's order.
std::vector<CXVolume> ListVolumes();
/// The mount path that holds `path`: the longest that is a prefix at a component boundary.
CXString GetVolumeRoot(const CXString& path);
/// True if `path` lies on the volume with this mount path: on POSIX only the mount that really
/// holds it, on Windows any prefix at a component boundary.
bool IsOnVolume(const CXString& path, const CXString& mountPath,
                const std::vector<CXVolume>& volumes);

// ---- Folders of the system and the process ----

/// Folders of the user and the system; the start menu's is that of the programs in it.
enum class KnownFolder : uint8_t { LocalAppData, StartMenu, Desktop, ProgramFiles };
/// Empty when the system can't name it.
CXString GetKnownFolder(KnownFolder folder);
/// The folder for temporary files, without trailing "/".
CXString GetTempPath();
/// Path of the running program.
CXString GetModulePath();
/// Folder of the running program, or the override.
CXString GetApplicationFolder();
/// Replaces the application folder (for tests); empty restores it.
void SetApplicationFolder(const CXString& folder);
/// The folder that relative paths start from; it is the whole process's.
CXString GetCurrentDirectory();
CXResult SetCurrentDirectory(const CXString& path);
/// Starts a program without waiting for it. A process that a user raised to administrator (by
/// pkexec) starts it as that user, whom it is for.
CXResult Launch(const CXString& program, const std::vector<CXString>& arguments,
                const CXString& folder);
/// Opens an address in the user's browser.
CXResult OpenURL(const CXString& url);

} // namespace CXFileSystem
