// The process-wide set of paths held open for exclusive writing.
#pragma once

#include "core/CXString.h"

/// Guarded by one critical section; any thread. Deletion and exclusive opens look here first.
namespace CXExclusivePaths {

/// Adds the (normalised, absolute) path; false if it is in the set already.
bool Add(const CXString& path);
/// Takes the path out, if it is in the set.
void Remove(const CXString& path);
/// True if the (normalised, absolute) path is in the set.
bool Contains(const CXString& path);

} // namespace CXExclusivePaths
