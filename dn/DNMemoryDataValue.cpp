#include "dn/DNMemoryDataValue.h"

#include "dn/DNMessages.h"
#include "dn/DNStdMetaData.h"

void DNMemoryDataValue::SetData(const DNData& data) {
    m_data = data;
    if (HasListeners()) {
        Broadcast(DNValueChangeMessage(this));
    }
}

DNValueRef DNMemoryDataValue::GetMeta() {
    if (!m_meta.IsSet()) {
        m_meta = new DNStdMetaData;
    }
    return m_meta;
}

CXString DNMemoryDataValue::GetDebugText() const {
    return CXString::Format("DNMemoryDataValue{%p}", static_cast<const void*>(this));
}
