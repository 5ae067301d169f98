#include "dn/DNMemoryIterator.h"

DNMemoryIterator::DNMemoryIterator(DNMemoryValue* folder, size_t index)
    : m_folder(folder), m_hold(folder),
      m_index(index < folder->GetChildCount() ? index : DNMemoryValue::kNoEntry) {
    folder->Link(*this);
}

DNMemoryIterator::~DNMemoryIterator() {
    m_folder->Unlink(*this);
}

DNValueRef DNMemoryIterator::GetValue() const {
    return Folder().ChildAt(m_index);
}

void DNMemoryIterator::SetValue(const DNValueRef& value) {
    if (!IsEnd()) {
        Folder().StoreValue(m_index, value);
    }
}

DNValueRef DNMemoryIterator::GetChildren() {
    return IsEnd() ? DNValueRef() : Folder().ChildrenAt(m_index);
}

DNData DNMemoryIterator::GetKey() const {
    return Folder().KeyAt(m_index);
}

void DNMemoryIterator::SetKey(const DNData& key) {
    if (IsEnd()) {
        m_index = Folder().Append(key, DNValueRef());
    } else {
        Folder().StoreKey(m_index, key);
    }
}

DNIteratorRef DNMemoryIterator::Remove() {
    return Folder().Remove(this);
}

bool DNMemoryIterator::IsEnd() const {
    return m_index >= Folder().GetChildCount();
}

void DNMemoryIterator::Next() {
    if (m_index != DNMemoryValue::kNoEntry && ++m_index >= Folder().GetChildCount()) {
        m_index = DNMemoryValue::kNoEntry;
    }
}

CXString DNMemoryIterator::GetDebugText() const {
    return CXString::Format("DNMemoryIterator{%p: %d/%p}", static_cast<const void*>(this),
                            static_cast<int64_t>(m_index), static_cast<const void*>(m_folder));
}
