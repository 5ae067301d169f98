#include "core/CXFileDriver.h"

#include <atomic>

namespace {

std::atomic<CXFileDriver*> s_current{nullptr};

} // namespace

CXResult CXResultFromOpenError(CXNativeError error) {
    return error != 0 && error == CXGetNativeErrors().lockHeld ? kCXResultInUse
                                                               : CXResultFromNativeError(error);
}

CXResult CXResultFromDeleteError(CXNativeError error) {
    const CXNativeErrors& errors = CXGetNativeErrors();
    return error == errors.busy || error == errors.busyOther ? kCXResultInUse
                                                             : CXResultFromNativeError(error);
}

CXFileDriver& CXFileDriver::Current() {
    CXFileDriver* driver = s_current.load(std::memory_order_acquire);
    return driver != nullptr ? *driver : Platform();
}

CXFileDriver* CXFileDriver::SetCurrent(CXFileDriver* driver) {
    CXFileDriver* earlier = s_current.exchange(driver, std::memory_order_acq_rel);
    return earlier != nullptr ? earlier : &Platform();
}
