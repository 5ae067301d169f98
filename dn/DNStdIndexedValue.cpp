#include "dn/DNStdIndexedValue.h"

#include "core/CXLog.h"
#include "dn/DNMemoryDataValue.h"
#include "dn/DNMessages.h"

size_t DNStdIndexedValue::IndexOfKey(const DNData& key) const {
    const size_t none = GetChildCount();
    if (key.type != kDNTypeInt || key.data.GetLength() != sizeof(int32_t)) {
        return none;
    }
    const int32_t index = key.ReadRawInt();
    return index < 0 ? none : static_cast<size_t>(index);
}

DNIteratorRef DNStdIndexedValue::Find(const DNData& key) {
    return At(IndexOfKey(key));
}

DNIteratorRef DNStdIndexedValue::End() {
    return At(GetChildCount());
}

DNIteratorRef DNStdIndexedValue::At(size_t index) {
    const size_t count = GetChildCount();
    return new DNStdIndexedIterator(this, index < count ? index : count);
}

DNValueRef DNStdIndexedValue::Get(const DNData& key) const {
    return ChildAt(IndexOfKey(key));
}

DNValueRef DNStdIndexedValue::ChildAt(size_t index) const {
    return index < GetChildCount() ? DNValueRef(new DNMemoryDataValue(ReadElement(index)))
                                   : DNValueRef();
}

DNData DNStdIndexedValue::KeyAt(size_t index) const {
    return index < GetChildCount() ? DNData::Int(static_cast<int32_t>(index)) : DNData();
}

void DNStdIndexedValue::SetIndexedKey(size_t index, const DNData&) {
    if (index >= GetChildCount()) {
        CXLogFormat("DNStdIndexedWrapper::SetIndexedKey> index out of range %d",
                    static_cast<int64_t>(index));
    }
}

void DNStdIndexedValue::SetIndexedValue(size_t index, const DNData& data) {
    if (index >= GetChildCount()) {
        CXLogFormat("DNStdIndexedWrapper::SetIndexedValue> index out of range %d",
                    static_cast<int64_t>(index));
        return;
    }
    const DNValueRef previous = HasListeners() ? ChildAt(index) : DNValueRef();
    WriteElement(index, data);
    if (HasListeners()) {
        Broadcast(DNIteratorValueChangedMessage(this, index, previous));
    }
}
