// The folder that lives in memory: an ordered array of entries.
#pragma once

#include "dn/DNValue.h"

#include <cstddef>
#include <memory>

class DNMemoryDataValue;
class DNMemoryIterator;

/// A folder of key and value pairs in the order in which they were added.
/// Finding a key is a walk for small folders and a logarithmic look-up in a
/// side index for larger ones, whatever the keys (they may come from outside).
/// One thread at a time, as DNValue says; only the list of live iterators is
/// guarded, so that iterators may be dropped on any thread.
class DNMemoryValue : public DNValue {
public:
  DNMemoryValue();
  ~DNMemoryValue() override;

  using DNValue::Find;
  using DNValue::Get;
  using DNValue::Set;

  DNIteratorRef Find(const DNData &key) override;
  DNIteratorRef End() override;
  DNIteratorRef Remove(const DNIteratorRef &iterator) override;
  void Set(const DNData &key, const DNValueRef &value) override;
  DNIteratorRef First() override;
  size_t GetChildCount() const override { return m_count; }
  DNIteratorRef At(size_t index) override;
  DNValueRef Get(const DNData &key) const override;
  DNIteratorRef FindOrCreate(const DNData &key) override;
  void RemoveAll() override;
  DNData GetKey(const DNIteratorRef &iterator) const override;
  DNValueRef GetChild(const DNIteratorRef &iterator) const override;
  uint32_t GetType() const override { return kDNTypeFolder; }
  DNData GetData() const override { return DNData::Folder(); }
  /// A folder has no pair of its own: only the change message is sent.
  void SetData(const DNData &data) override;
  DNValueRef CreateValue(const DNData &data) override;
  DNValueRef GetMeta() override;
  DNValueRef FindMeta() const override;
  CXString GetDebugText() const override;
  DNValueRef ChildAt(size_t index) const override;
  DNData KeyAt(size_t index) const override;

private:
  friend class DNMemoryIterator;
  struct Entry;
  struct Index;

  static constexpr size_t kNoEntry = ~static_cast<size_t>(0);
  /// Folders of this many entries and more get a side index at the first
  /// look-up.
  static constexpr size_t kIndexThreshold = 16;

  size_t FindIndex(const DNData &key) const;
  size_t Append(const DNData &key, const DNValueRef &value);
  void RemoveAt(size_t index);
  void StoreValue(size_t index, const DNValueRef &value);
  void StoreKey(size_t index, const DNData &key);
  DNIteratorRef MakeIterator(size_t index);

  Entry *m_children = nullptr;
  size_t m_count = 0;
  size_t m_capacity = 0;
  DNValueRef m_meta;
  mutable std::unique_ptr<Index> m_index;
  DNMemoryIterator *m_iterators =
      nullptr; ///< live iterators, under the address lock
};
