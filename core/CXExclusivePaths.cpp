#include "core/CXExclusivePaths.h"

#include "core/CXLock.h"

#include <set>

namespace {

struct PathSet {
    CXCriticalSection section;
    std::set<CXString> paths;
};

/// Never destroyed: streams with static lifetime may close after everything else.
PathSet& TheSet() {
    static PathSet* set = new PathSet;
    return *set;
}

} // namespace

bool CXExclusivePaths::Add(const CXString& path) {
    PathSet& set = TheSet();
    CXCriticalSectionGuard guard(set.section);
    return set.paths.insert(path).second;
}

void CXExclusivePaths::Remove(const CXString& path) {
    PathSet& set = TheSet();
    CXCriticalSectionGuard guard(set.section);
    set.paths.erase(path);
}

bool CXExclusivePaths::Contains(const CXString& path) {
    PathSet& set = TheSet();
    CXCriticalSectionGuard guard(set.section);
    return set.paths.count(path) != 0;
}
