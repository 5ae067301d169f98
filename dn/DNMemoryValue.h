// The folder that lives in memory: an ordered array of entries.
#pragma once

#include "dn/DNValue.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

class DNMemoryIterator;

/// A folder of key and value pairs in the order in which they were added.
/// Finding a key is a walk for small folders and a logarithmic look-up in a
/// side index for larger ones, whatever the keys (they may come from outside).
/// Changed by one thread at a time, as DNValue says. Guarded are the side index
/// that a look-up makes, so that several threads may read, and the list of live
/// iterators, so that iterators may be dropped on any thread.
class DNMemoryValue : public DNValue {
public:
    DNMemoryValue();

    using DNValue::Find;
    using DNValue::Get;
    using DNValue::Set;

    DNIteratorRef Find(const DNData& key) override;
    DNIteratorRef End() override;
    DNIteratorRef Remove(const DNIteratorRef& iterator) override;
    void Set(const DNData& key, const DNValueRef& value) override;
    DNIteratorRef First() override;
    size_t GetChildCount() const override { return m_children.size(); }
    DNIteratorRef At(size_t index) override;
    DNValueRef Get(const DNData& key) const override;
    DNIteratorRef FindOrCreate(const DNData& key) override;
    void RemoveAll() override;
    DNData GetKey(const DNIteratorRef& iterator) const override;
    DNValueRef GetChild(const DNIteratorRef& iterator) const override;
    uint32_t GetType() const override { return kDNTypeFolder; }
    DNData GetData() const override { return DNData::Folder(); }
    /// A folder has no pair of its own: only the change message is sent.
    void SetData(const DNData& data) override;
    DNValueRef CreateValue(const DNData& data) override;
    DNValueRef GetMeta() override;
    DNValueRef FindMeta() const override;
    CXString GetDebugText() const override;
    const char* GetTypeName() const override { return "DNMemoryValue"; }
    DNValueRef ChildAt(size_t index) const override;
    DNData KeyAt(size_t index) const override;

protected:
    ~DNMemoryValue() override;

private:
    friend class DNMemoryIterator;

    struct Entry {
        DNValueRef key; ///< a DNMemoryDataValue that is never changed, only replaced
        DNValueRef value;
        DNValueRef children; ///< the value once more if it is a folder, else unset
    };
    struct Index;

    static constexpr size_t kNoEntry = ~static_cast<size_t>(0);
    /// Folders of this many entries and more get a side index at the first look-up.
    static constexpr size_t kIndexThreshold = 16;

    static const DNData& KeyOf(const Entry& entry);

    size_t FindIndex(const DNData& key) const;
    void DropIndex();
    size_t Append(const DNData& key, const DNValueRef& value);
    DNValueRef RemoveAt(size_t index);
    void StoreValue(size_t index, const DNValueRef& value);
    void StoreKey(size_t index, const DNData& key);
    DNValueRef ChildrenAt(size_t index);

    void Link(DNMemoryIterator& iterator);
    void Unlink(DNMemoryIterator& iterator);
    /// The iterator's index if it is one of this folder and not at the end, else kNoEntry.
    size_t IndexOf(const DNIteratorRef& iterator) const;

    std::vector<Entry> m_children;
    DNValueRef m_meta;
    mutable std::unique_ptr<Index> m_index; ///< made under the address lock
    mutable std::atomic<bool> m_isIndexed{false};
    DNMemoryIterator* m_iterators = nullptr; ///< live iterators, under the address lock
};
