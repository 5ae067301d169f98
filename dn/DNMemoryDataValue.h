// The leaf that lives in memory.
#pragma once

#include "dn/DNValue.h"

/// Holds one data pair, and a meta-data value once one was asked for.
class DNMemoryDataValue : public DNValue {
public:
    explicit DNMemoryDataValue(const DNData& data) : m_data(data) {}

    uint32_t GetType() const override { return m_data.type; }
    DNData GetData() const override { return m_data; }
    void SetData(const DNData& data) override;
    DNValueRef GetMeta() override;
    DNValueRef FindMeta() const override { return m_meta; }
    CXString GetDebugText() const override;
    const char* GetTypeName() const override { return "DNMemoryDataValue"; }

    /// The pair without a copy; valid until SetData.
    const DNData& PeekData() const { return m_data; }

private:
    DNData m_data;
    DNValueRef m_meta;
};
