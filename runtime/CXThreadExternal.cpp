#include "runtime/CXThreadExternal.h"

CXThreadExternal::CXThreadExternal(const CXString& name, int32_t priority) : CXThread(name) {
    m_priority.store(priority);
    Register();
}

CXThreadExternal::~CXThreadExternal() {
    RunEndCallbacks();
    Unregister();
}
