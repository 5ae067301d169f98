// The iterator of DNMemoryValue.
#pragma once

#include "dn/DNIterator.h"
#include "dn/DNMemoryValue.h"

#include <cstddef>

/// Folder and index; the folder adjusts the index of its live iterators when entries go.
class DNMemoryIterator : public DNIterator {
public:
    /// `index` beyond the last entry makes an end iterator.
    DNMemoryIterator(DNMemoryValue* folder, size_t index);

    DNValueRef GetValue() const override;
    void SetValue(const DNValueRef& value) override;
    DNValueRef GetChildren() override;
    DNData GetKey() const override;
    void SetKey(const DNData& key) override;
    DNIteratorRef Remove() override;
    bool IsEnd() const override;
    void Next() override;
    CXString GetDebugText() const override;
    DNMemoryIterator* AsMemoryIterator() override { return this; }

protected:
    ~DNMemoryIterator() override;

private:
    friend class DNMemoryValue;

    DNMemoryValue& Folder() const { return *m_folder; }

    DNMemoryValue* m_folder; ///< kept alive by m_hold
    DNValueRef m_hold;
    size_t m_index; ///< DNMemoryValue::kNoEntry at the end
    DNMemoryIterator* m_previous = nullptr;
    DNMemoryIterator* m_next = nullptr;
};
