// Messages with plain payloads.
#pragma once

#include "runtime/CXMessage.h"

#include <cstdint>
#include <utility>
#include <vector>

/// Carries an integer.
class CXMessageIntParam : public CXMessage {
public:
    CXMessageIntParam(const CXString& name, CXMessageTarget* source, int64_t value)
        : CXMessage(name, source), m_value(value) {}
    int64_t GetValue() const { return m_value; }

private:
    int64_t m_value;
};

/// Carries a list of texts and one optional further pointer, which it does not own.
class CXMessageStringParam : public CXMessage {
public:
    CXMessageStringParam(const CXString& name, CXMessageTarget* source,
                         std::vector<CXString> strings, void* pointer = nullptr)
        : CXMessage(name, source), m_strings(std::move(strings)), m_pointer(pointer) {}
    const std::vector<CXString>& GetStrings() const { return m_strings; }
    void* GetPointer() const { return m_pointer; }

private:
    std::vector<CXString> m_strings;
    void* m_pointer;
};
