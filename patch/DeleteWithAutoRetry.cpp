#include "patch/DeleteWithAutoRetry.h"

#include "core/CXFileSystem.h"
#include "core/CXTime.h"

#include <atomic>

namespace {

constexpr int kAttempts = 10;
std::atomic<uint32_t> g_pauseMilliseconds{1000};

CXResult DeleteOnce(const CXString& path) {
    CXFileAttributes attributes;
    const CXResult found = CXFileSystem::GetAttributes(path, false, attributes);
    const bool isFolder = found == kCXResultOK && attributes.isDirectory && !attributes.isLink;
    return isFolder ? CXFileSystem::DeleteDirectory(path) : CXFileSystem::DeleteFile(path);
}

} // namespace

CXResult DeleteWithAutoRetry(const CXString& path,
                             const std::function<void(const CXString&)>& log) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const CXResult result = DeleteOnce(path);
        if (result != kCXResultInUse) {
            return result;
        }
        log(CXString::Format("DeleteWithAutoRetry> node busy while deleting '%s' (retry: %d)",
                             path.GetData(), attempt));
        CXSleep(g_pauseMilliseconds.load(std::memory_order_relaxed));
    }
    return kCXResultInUse;
}

uint32_t SetDeleteRetryPause(uint32_t milliseconds) {
    return g_pauseMilliseconds.exchange(milliseconds, std::memory_order_relaxed);
}
