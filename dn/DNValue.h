// A node of the data tree: a leaf with a typed data pair, or a folder of key
// and value pairs.
#pragma once

#include "core/CXString.h"
#include "dn/DNData.h"
#include "runtime/CXMessageTarget.h"
#include "runtime/DynamicReferenceCount.h"

#include <cstddef>
#include <cstdint>
#include <vector>

class DNIteratorRef;
class DNValueRef;

/// Base of all values, and itself the value that holds nothing: type 0, no
/// children, every change ignored. Values are counted (hold them by DNValueRef)
/// and not locked as a whole: a tree is built by one thread and may then be
/// read by several. Listeners (CXMessageTarget::AddListener) get the messages
/// of dn/DNMessages.h. Depth of nesting costs no stack, not on release either.
///
/// Reads never fail: a missing key gives the shared empty value, and the typed
/// reads give their default.
class DNValue : public DynamicReferenceCount, public CXMessageTarget {
public:
    DNValue() = default;
    DNValue(const DNValue&) = delete;
    DNValue& operator=(const DNValue&) = delete;
    ~DNValue() override;

    /// Values come from the block allocator; null never (memory exhaustion ends
    /// the process).
    static void* operator new(size_t size);
    static void operator delete(void* block, size_t size);

    /// The one value that stands for "nothing", made on first use and never
    /// destroyed.
    static DNValue* SharedEmpty();

    // ---- Folder operations ----

    /// Iterator at the entry with this key, or the end iterator.
    virtual DNIteratorRef Find(const DNData& key);
    /// The end iterator; setting its key appends a new entry, on which it then
    /// stands.
    virtual DNIteratorRef End();
    /// Removes the entry; later iterators keep their entries. Returns an iterator
    /// at the entry that followed, or the end iterator (also when the iterator
    /// isn't one of this folder).
    virtual DNIteratorRef Remove(const DNIteratorRef& iterator);
    /// Stores the value at the key, appending an entry if there is none.
    virtual void Set(const DNData& key, const DNValueRef& value);
    virtual DNIteratorRef First();
    virtual size_t GetChildCount() const;
    /// Iterator at an index, in file order; the end iterator if out of range.
    virtual DNIteratorRef At(size_t index);
    /// The value at the key; the shared empty value if missing.
    virtual DNValueRef Get(const DNData& key) const;
    /// As Find, appending an entry without a value if missing.
    virtual DNIteratorRef FindOrCreate(const DNData& key);
    virtual void RemoveAll();
    virtual DNData GetKey(const DNIteratorRef& iterator) const;
    virtual DNValueRef GetChild(const DNIteratorRef& iterator) const;

    // ---- Data ----

    virtual uint32_t GetType() const;
    /// The pair; a folder gives its type with no bytes.
    virtual DNData GetData() const;
    /// Replaces the pair and sends the change message.
    virtual void SetData(const DNData& data);
    /// Makes a data value from the pair, for storing at an entry of this folder.
    virtual DNValueRef CreateValue(const DNData& data);
    /// The meta-data value, made if there is none.
    virtual DNValueRef GetMeta();
    /// The meta-data value if there is one, else the shared empty value.
    virtual DNValueRef FindMeta() const;
    /// "DNValue{}" and the like, for logs.
    virtual CXString GetDebugText() const;
    const char* GetTypeName() const override { return "DNValue"; }

    // ---- Conveniences ----

    /// Whether this is a folder.
    bool IsFolder() const { return GetType() == kDNTypeFolder; }
    /// The same as Get, Find and Set with a string key.
    DNValueRef Get(absl::string_view key) const;
    DNValueRef Get(const char* key) const;
    DNIteratorRef Find(const char* key);
    void Set(const char* key, const DNValueRef& value);
    /// Stores a new data value made from the pair.
    void SetNew(const DNData& key, const DNData& data);
    void SetNew(const char* key, const DNData& data);
    /// The folder at the key, made (in place of whatever the key held) if it
    /// isn't one.
    DNValueRef GetOrCreateFolder(const DNData& key);
    /// The value and the key at an index, without an iterator; empty when out of
    /// range.
    virtual DNValueRef ChildAt(size_t index) const;
    virtual DNData KeyAt(size_t index) const;

    /// Typed reads of the data pair: see DNData.
    bool GetBool(bool defaultValue = false) const;
    int32_t GetInt(int32_t defaultValue = 0) const;
    int64_t GetInt64(int64_t defaultValue = 0) const;
    float GetFloat(float defaultValue = 0) const;
    CXString GetString(const CXString& defaultValue = CXString()) const;
    std::vector<float> GetFloats(const std::vector<float>& defaultValue = {}) const;
    std::vector<int32_t> GetInts(const std::vector<int32_t>& defaultValue = {}) const;

    /// The name of the type, empty for those that have none.
    CXString GetTypeText() const { return CXString(DNTypeName(GetType())); }
    /// The tree below as text, one line a key and one a value, for logs and the
    /// debugger.
    CXString Dump() const;

protected:
    /// Sends "DNValue::releaseValue" and frees the value, and then, one after the
    /// other, what only it held.
    void ReleaseObject() override;
};

#include "dn/DNIterator.h"
#include "dn/DNValueRef.h"
