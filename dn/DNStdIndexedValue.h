// A view on a standard container as a folder with the indices 0 to N-1 as int keys.
#pragma once

#include "dn/DNIterator.h"
#include "dn/DNValue.h"

#include <cstddef>
#include <vector>

/// The shape that all views share. The container is not owned: it must outlive the view, and
/// entries can be neither added nor removed through it. Keys are fixed; storing a key or value at
/// an index that doesn't exist is logged and does nothing.
class DNStdIndexedValue : public DNValue {
public:
    using DNValue::Find;
    using DNValue::Get;

    DNIteratorRef Find(const DNData& key) override;
    DNIteratorRef End() override;
    DNIteratorRef At(size_t index) override;
    DNValueRef Get(const DNData& key) const override;
    uint32_t GetType() const override { return kDNTypeFolder; }
    DNData GetData() const override { return DNData::Folder(); }
    DNValueRef ChildAt(size_t index) const override;
    DNData KeyAt(size_t index) const override;

    /// Keys can't change, so this does nothing but tell of an index out of range.
    void SetIndexedKey(size_t index, const DNData& key);
    /// Stores the value's data in the container; a view that is read-only ignores it.
    void SetIndexedValue(size_t index, const DNData& data);

protected:
    virtual DNData ReadElement(size_t index) const = 0;
    virtual void WriteElement(size_t index, const DNData& data) = 0;

private:
    size_t IndexOfKey(const DNData& key) const;
};

/// Walks a DNStdIndexedValue.
class DNStdIndexedIterator : public DNIterator {
public:
    DNStdIndexedIterator(DNStdIndexedValue* view, size_t index)
        : m_view(view), m_hold(view), m_index(index) {}

    DNValueRef GetValue() const override { return m_view->ChildAt(m_index); }
    void SetValue(const DNValueRef& value) override {
        m_view->SetIndexedValue(m_index, value->GetData());
    }
    DNData GetKey() const override { return m_view->KeyAt(m_index); }
    void SetKey(const DNData& key) override { m_view->SetIndexedKey(m_index, key); }
    bool IsEnd() const override { return m_index >= m_view->GetChildCount(); }
    void Next() override { m_index += IsEnd() ? 0 : 1; }

protected:
    ~DNStdIndexedIterator() override = default;

private:
    DNStdIndexedValue* m_view; ///< kept alive by m_hold
    DNValueRef m_hold;
    size_t m_index;
};

/// The two directions between an element of a container and its data pair.
inline DNData DNDataOfElement(int32_t element) {
    return DNData::Int(element);
}
inline DNData DNDataOfElement(int64_t element) {
    return DNData::Int64(element);
}
inline DNData DNDataOfElement(float element) {
    return DNData::Float(element);
}
inline DNData DNDataOfElement(const CXString& element) {
    return DNData::String(element);
}
inline void DNDataToElement(const DNData& data, int32_t& out) {
    out = data.GetInt();
}
inline void DNDataToElement(const DNData& data, int64_t& out) {
    out = data.GetInt64();
}
inline void DNDataToElement(const DNData& data, float& out) {
    out = data.GetFloat();
}
inline void DNDataToElement(const DNData& data, CXString& out) {
    out = data.GetString();
}

/// The view on a vector: read-write on a plain one, read-only on a const one.
template <typename Element> class DNStdIndexedVector final : public DNStdIndexedValue {
public:
    explicit DNStdIndexedVector(std::vector<Element>* elements)
        : m_elements(elements), m_writable(elements) {}
    explicit DNStdIndexedVector(const std::vector<Element>* elements)
        : m_elements(elements), m_writable(nullptr) {}

    size_t GetChildCount() const override { return m_elements->size(); }

protected:
    ~DNStdIndexedVector() override = default;
    DNData ReadElement(size_t index) const override {
        return DNDataOfElement((*m_elements)[index]);
    }
    void WriteElement(size_t index, const DNData& data) override {
        if (m_writable) {
            DNDataToElement(data, (*m_writable)[index]);
        }
    }

private:
    const std::vector<Element>* m_elements;
    std::vector<Element>* m_writable;
};
