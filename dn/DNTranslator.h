// Conversion of data pairs from one type to another.
#pragma once

#include "core/CXResult.h"
#include "dn/DNData.h"

#include <cstddef>

/// One conversion. The program's own stand in one global list, in a fixed order that decides which
/// of several ways is taken; they are registered at the first look-up. `Translate` is called from
/// any thread and keeps no state.
class DNTranslator {
public:
    DNTranslator(uint32_t fromType, uint32_t toType) : m_fromType(fromType), m_toType(toType) {}
    virtual ~DNTranslator() = default;

    /// Converts; `in` has the from-type. Bytes of a wrong length give kCXResultBadData, a text or
    /// number that can't be converted kCXResultUnusable; `out` is then left alone.
    virtual CXResult Translate(const DNData& in, DNData& out) const = 0;

    uint32_t GetFromType() const { return m_fromType; }
    uint32_t GetToType() const { return m_toType; }

    /// Appends a translator to the list, which doesn't own it; it must live as long as the process.
    /// For start-up only, before another thread translates.
    static void Register(const DNTranslator* translator);

private:
    uint32_t m_fromType;
    uint32_t m_toType;
};

/// Converts `value` to `toType`: a plain copy for the same type; else the first translator of the
/// list that doesn't answer kCXResultUnusable; else the first chain of two. Nothing (type 0)
/// converts to nothing, with success. Without a way `out` is empty and the result
/// kCXResultUnusable.
CXResult Translate(const DNData& value, uint32_t toType, DNData& out);
