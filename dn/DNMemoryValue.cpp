#include "dn/DNMemoryValue.h"

#include "core/CXLock.h"
#include "dn/DNMemoryDataValue.h"
#include "dn/DNMemoryIterator.h"
#include "dn/DNMessages.h"

#include <map>
#include <utility>

namespace {

/// The lock of a folder's list of iterators, picked by its address from a table of 64. The table
/// is never destroyed, since static references may die after it.
CXCriticalSection& AddressLock(const void* object) {
    constexpr size_t kLocks = 64;
    static CXCriticalSection* const locks = new CXCriticalSection[kLocks];
    return locks[CXString::LockIndex(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(object)))];
}

struct KeyLess {
    bool operator()(const DNData& a, const DNData& b) const {
        return a.type != b.type ? a.type < b.type : a.data.Less(b.data);
    }
};

} // namespace

/// Position of the first entry of each key. An ordered map, so that keys chosen to collide cost no
/// more than others.
struct DNMemoryValue::Index {
    std::map<DNData, size_t, KeyLess> positions;
};

DNMemoryValue::DNMemoryValue() = default;

DNMemoryValue::~DNMemoryValue() = default;

const DNData& DNMemoryValue::KeyOf(const Entry& entry) {
    return static_cast<const DNMemoryDataValue*>(entry.key.Get())->PeekData();
}

size_t DNMemoryValue::FindIndex(const DNData& key) const {
    if (m_children.size() < kIndexThreshold) {
        for (size_t i = 0; i < m_children.size(); ++i) {
            if (KeyOf(m_children[i]) == key) {
                return i;
            }
        }
        return kNoEntry;
    }
    if (!m_isIndexed.load(std::memory_order_acquire)) {
        const CXCriticalSectionGuard guard(AddressLock(this)); // other readers may be here too
        if (!m_index) {
            auto index = std::make_unique<Index>();
            for (size_t i = 0; i < m_children.size(); ++i) {
                index->positions.emplace(KeyOf(m_children[i]), i);
            }
            m_index = std::move(index);
            m_isIndexed.store(true, std::memory_order_release);
        }
    }
    const auto found = m_index->positions.find(key);
    return found == m_index->positions.end() ? kNoEntry : found->second;
}

void DNMemoryValue::DropIndex() {
    m_isIndexed.store(false, std::memory_order_relaxed);
    m_index.reset();
}

size_t DNMemoryValue::Append(const DNData& key, const DNValueRef& value) {
    const size_t index = m_children.size();
    m_children.push_back(
        {new DNMemoryDataValue(key), value, value->IsFolder() ? value : DNValueRef()});
    if (m_index) {
        m_index->positions.emplace(key, index);
    }
    if (HasListeners()) {
        Broadcast(DNValueAddChildMessage(this, index));
    }
    return index;
}

DNValueRef DNMemoryValue::RemoveAt(size_t index) {
    DNValueRef removed = m_children[index].value;
    if (m_index && index + 1 == m_children.size()) {
        const auto found = m_index->positions.find(KeyOf(m_children[index]));
        if (found != m_index->positions.end() && found->second == index) {
            m_index->positions.erase(found);
        }
    } else {
        DropIndex(); // every later position changes
    }
    m_children.erase(m_children.begin() + static_cast<std::ptrdiff_t>(index));
    const CXCriticalSectionGuard guard(AddressLock(this));
    for (DNMemoryIterator* live = m_iterators; live; live = live->m_next) {
        if (live->m_index == kNoEntry) {
            continue;
        }
        if (live->m_index > index) {
            --live->m_index;
        } else if (live->m_index == m_children.size()) {
            live->m_index = kNoEntry; // stood on the last entry; must not meet one added later
        }
    }
    return removed;
}

void DNMemoryValue::StoreValue(size_t index, const DNValueRef& value) {
    Entry& entry = m_children[index];
    const DNValueRef previous = entry.value;
    entry.value = value;
    entry.children = value->IsFolder() ? value : DNValueRef();
    if (HasListeners()) {
        Broadcast(DNIteratorValueChangedMessage(this, index, previous));
    }
}

void DNMemoryValue::StoreKey(size_t index, const DNData& key) {
    m_children[index].key = new DNMemoryDataValue(key);
    DropIndex();
    if (HasListeners()) {
        Broadcast(DNIteratorKeyChangedMessage(this, index));
    }
}

DNValueRef DNMemoryValue::ChildrenAt(size_t index) {
    if (!m_children[index].children.IsSet()) {
        StoreValue(index, new DNMemoryValue);
    }
    return m_children[index].children;
}

void DNMemoryValue::Link(DNMemoryIterator& iterator) {
    const CXCriticalSectionGuard guard(AddressLock(this));
    iterator.m_next = m_iterators;
    if (m_iterators) {
        m_iterators->m_previous = &iterator;
    }
    m_iterators = &iterator;
}

void DNMemoryValue::Unlink(DNMemoryIterator& iterator) {
    const CXCriticalSectionGuard guard(AddressLock(this));
    (iterator.m_previous ? iterator.m_previous->m_next : m_iterators) = iterator.m_next;
    if (iterator.m_next) {
        iterator.m_next->m_previous = iterator.m_previous;
    }
}

size_t DNMemoryValue::IndexOf(const DNIteratorRef& iterator) const {
    const DNMemoryIterator* own = iterator->AsMemoryIterator();
    return own && own->m_folder == this && own->m_index < m_children.size() ? own->m_index
                                                                            : kNoEntry;
}

DNIteratorRef DNMemoryValue::Find(const DNData& key) {
    return At(FindIndex(key));
}

DNIteratorRef DNMemoryValue::End() {
    return At(kNoEntry);
}

DNIteratorRef DNMemoryValue::First() {
    return At(0);
}

DNIteratorRef DNMemoryValue::At(size_t index) {
    return new DNMemoryIterator(this, index);
}

DNIteratorRef DNMemoryValue::Remove(const DNIteratorRef& iterator) {
    const size_t index = IndexOf(iterator);
    if (index == kNoEntry) {
        return End();
    }
    const DNValueRef removed = RemoveAt(index);
    if (HasListeners()) {
        Broadcast(DNValueRemoveChildMessage(this, index, removed));
    }
    return At(index);
}

void DNMemoryValue::Set(const DNData& key, const DNValueRef& value) {
    const size_t index = FindIndex(key);
    if (index == kNoEntry) {
        Append(key, value);
    } else {
        StoreValue(index, value);
    }
}

DNValueRef DNMemoryValue::Get(const DNData& key) const {
    return ChildAt(FindIndex(key));
}

DNIteratorRef DNMemoryValue::FindOrCreate(const DNData& key) {
    const size_t index = FindIndex(key);
    return At(index == kNoEntry ? Append(key, DNValueRef()) : index);
}

void DNMemoryValue::RemoveAll() {
    while (!m_children.empty()) { // from the back, so that nothing has to move
        Remove(At(m_children.size() - 1));
    }
}

DNData DNMemoryValue::GetKey(const DNIteratorRef& iterator) const {
    return KeyAt(IndexOf(iterator));
}

DNValueRef DNMemoryValue::GetChild(const DNIteratorRef& iterator) const {
    return ChildAt(IndexOf(iterator));
}

DNValueRef DNMemoryValue::ChildAt(size_t index) const {
    return index < m_children.size() ? m_children[index].value : DNValueRef();
}

DNData DNMemoryValue::KeyAt(size_t index) const {
    return index < m_children.size() ? KeyOf(m_children[index]) : DNData();
}

void DNMemoryValue::SetData(const DNData&) {
    if (HasListeners()) {
        Broadcast(DNValueChangeMessage(this));
    }
}

DNValueRef DNMemoryValue::CreateValue(const DNData& data) {
    return new DNMemoryDataValue(data);
}

DNValueRef DNMemoryValue::GetMeta() {
    if (!m_meta.IsSet()) {
        m_meta = new DNMemoryValue;
    }
    return m_meta;
}

DNValueRef DNMemoryValue::FindMeta() const {
    return m_meta;
}

CXString DNMemoryValue::GetDebugText() const {
    return CXString::Format("DNMemoryValue{%p}", static_cast<const void*>(this));
}
