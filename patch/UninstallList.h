// "uninstall.dat": the files outside the target folder that go with it.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <functional>
#include <vector>

class CXStream;

/// Path of the list in a target folder.
CXString GetUninstallListPath(const CXString& targetFolder);

/// Writes the list of a target folder: absolute paths, in the order in which the files were made.
/// An empty list writes nothing, and a list that is there already stays as it is: both are success.
/// On failure the part that could be written stays, which reads as the entries that are whole.
CXResult WriteUninstallList(const CXString& targetFolder, const std::vector<CXString>& paths);

/// Tells each entry of the list at the stream's position, in order, until its end. Another version
/// has no entries; what follows an entry that is damaged is not read.
void ReadUninstallList(CXStream& stream, const std::function<void(const CXString&)>& entry);
