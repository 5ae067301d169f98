// A position in a folder of the data tree.
#pragma once

#include "core/CXString.h"
#include "dn/DNValue.h"
#include "runtime/DynamicReferenceCount.h"

class DNIteratorRef;
class DNMemoryIterator;
class DNValueRef;

/// Base of the iterators, and itself the end of a value that has no entries.
/// Counted; callers hold it by DNIteratorRef. An iterator keeps its folder
/// alive and stays on its entry while others are added or removed; when its own
/// entry is removed it stands on the next one.
class DNIterator : public DynamicReferenceCount {
public:
    DNIterator() = default;
    DNIterator(const DNIterator&) = delete;
    DNIterator& operator=(const DNIterator&) = delete;
    ~DNIterator() override;

    static void* operator new(size_t size);
    static void operator delete(void* block, size_t size);

    /// The entry's value; the shared empty value at the end or for an entry
    /// without one.
    virtual DNValueRef GetValue() const;
    /// Replaces the entry's value; nothing happens at the end.
    virtual void SetValue(const DNValueRef& value);
    /// The folder at this entry, made in place of the value if that isn't a
    /// folder.
    virtual DNValueRef GetChildren();
    virtual DNData GetKey() const;
    /// Replaces the entry's key; at the end appends an entry with this key and
    /// stands on it.
    virtual void SetKey(const DNData& key);
    /// Removes the entry from its folder: see DNValue::Remove.
    virtual DNIteratorRef Remove();
    virtual bool IsEnd() const;
    /// Moves to the next entry; stays at the end.
    virtual void Next();
    /// "DNIterator{}" and the like, for logs.
    virtual CXString GetDebugText() const;
    /// This as an iterator of a DNMemoryValue, or null.
    virtual DNMemoryIterator* AsMemoryIterator() { return nullptr; }
};

/// Holds one count of an iterator; never null: an unset one is an end iterator.
class DNIteratorRef {
public:
    DNIteratorRef() noexcept : m_iterator(nullptr) {}
    DNIteratorRef(DNIterator* iterator) : m_iterator(iterator) {
        if (m_iterator) {
            m_iterator->AddReference();
        }
    }
    DNIteratorRef(const DNIteratorRef& other) : DNIteratorRef(other.m_iterator) {}
    DNIteratorRef(DNIteratorRef&& other) noexcept : m_iterator(other.m_iterator) {
        other.m_iterator = nullptr;
    }
    ~DNIteratorRef() {
        if (m_iterator) {
            m_iterator->RemoveReference();
        }
    }
    DNIteratorRef& operator=(DNIteratorRef other) noexcept {
        DNIterator* iterator = m_iterator;
        m_iterator = other.m_iterator;
        other.m_iterator = iterator;
        return *this;
    }

    DNIterator* Get() const { return m_iterator ? m_iterator : SharedEnd(); }
    DNIterator* operator->() const { return Get(); }
    DNIterator& operator*() const { return *Get(); }

private:
    static DNIterator* SharedEnd();
    DNIterator* m_iterator;
};
