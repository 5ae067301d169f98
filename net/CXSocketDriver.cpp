#include "net/CXSocketDriver.h"

#include <atomic>

namespace {

std::atomic<CXSocketDriver*> s_current{nullptr};

} // namespace

CXSocketDriver& CXSocketDriver::Current() {
    CXSocketDriver* driver = s_current.load(std::memory_order_acquire);
    return driver != nullptr ? *driver : Platform();
}

CXSocketDriver* CXSocketDriver::SetCurrent(CXSocketDriver* driver) {
    return s_current.exchange(driver, std::memory_order_acq_rel);
}
