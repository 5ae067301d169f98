#include "dn/DNTranslator.h"

#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "dn/DNNumberText.h"

#include <cstring>
#include <vector>

namespace {

constexpr size_t kListGrowth = 128;

using TranslateFunction = CXResult (*)(const DNData& in, DNData& out);

template <uint32_t From, uint32_t To, TranslateFunction Function>
class DNFunctionTranslator final : public DNTranslator {
public:
    DNFunctionTranslator() : DNTranslator(From, To) {}
    CXResult Translate(const DNData& in, DNData& out) const override { return Function(in, out); }
};

template <typename Number> Number ElementAt(const DNData& in, size_t index) {
    Number number;
    std::memcpy(&number, in.data.GetData() + index * sizeof number, sizeof number);
    return number;
}

bool HasWholeElements(const DNData& in) {
    return in.data.GetLength() % 4 == 0;
}

CXResult IntToFloat(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 4) {
        return kCXResultBadData;
    }
    out = DNData::Float(static_cast<float>(in.ReadRawInt()));
    return kCXResultOK;
}

CXResult IntsToFloats(const DNData& in, DNData& out) {
    if (!HasWholeElements(in)) {
        return kCXResultBadData;
    }
    std::vector<float> floats(in.GetElementCount());
    for (size_t i = 0; i < floats.size(); ++i) {
        floats[i] = static_cast<float>(ElementAt<int32_t>(in, i));
    }
    out = DNData::Floats(floats.data(), floats.size());
    return kCXResultOK;
}

CXResult IntToString(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 4) {
        return kCXResultBadData;
    }
    out = DNData::String(CXString::Format("%d", in.ReadRawInt()));
    return kCXResultOK;
}

CXResult StringToInt(const DNData& in, DNData& out) {
    int32_t number = 0;
    if (!DNNumberText::ReadInt(in.data, number)) {
        return kCXResultUnusable;
    }
    out = DNData::Int(number);
    return kCXResultOK;
}

CXResult FloatToString(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 4) {
        return kCXResultBadData;
    }
    out = DNData::String(CXString::Format("%f", in.ReadRawFloat()));
    return kCXResultOK;
}

CXResult StringToFloat(const DNData& in, DNData& out) {
    float number = 0;
    if (!DNNumberText::ReadFloat(in.data, number)) {
        return kCXResultUnusable;
    }
    out = DNData::Float(number);
    return kCXResultOK;
}

template <typename Number>
CXResult ListToString(const DNData& in, DNData& out, const char* first, const char* later) {
    if (!HasWholeElements(in)) {
        return kCXResultBadData;
    }
    CXStringEdit edit;
    for (size_t i = 0; i < in.GetElementCount(); ++i) {
        edit.AppendFormat(i == 0 ? first : later, ElementAt<Number>(in, i));
    }
    out = DNData::String(edit.ToString());
    return kCXResultOK;
}

CXResult FloatsToString(const DNData& in, DNData& out) {
    return ListToString<float>(in, out, "%f", ", %f");
}

CXResult IntsToString(const DNData& in, DNData& out) {
    return ListToString<int32_t>(in, out, "%d", ", %d");
}

CXResult StringToFloats(const DNData& in, DNData& out) {
    std::vector<float> floats;
    if (!DNNumberText::ReadFloats(in.data, floats)) {
        return kCXResultUnusable;
    }
    out = DNData::Floats(floats.data(), floats.size());
    return kCXResultOK;
}

CXResult StringToInts(const DNData& in, DNData& out) {
    std::vector<int32_t> ints;
    if (!DNNumberText::ReadInts(in.data, ints)) {
        return kCXResultUnusable;
    }
    out = DNData::Ints(ints.data(), ints.size());
    return kCXResultOK;
}

CXResult BoolToString(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 1) {
        return kCXResultBadData;
    }
    out = DNData::String(in.ReadRawBool() ? "true" : "false");
    return kCXResultOK;
}

CXResult StringToBool(const DNData& in, DNData& out) {
    const bool isTrue = EqualsNoCase(in.data, "true");
    if (!isTrue && !EqualsNoCase(in.data, "false")) {
        return kCXResultUnusable;
    }
    out = DNData::Bool(isTrue);
    return kCXResultOK;
}

CXResult Int64ToString(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 8) {
        return kCXResultBadData;
    }
    out = DNData::String(CXString::Format("%d", in.ReadRawInt64()));
    return kCXResultOK;
}

CXResult StringToInt64(const DNData& in, DNData& out) {
    int64_t number = 0;
    if (!DNNumberText::ReadInt64(in.data, number)) {
        return kCXResultUnusable;
    }
    out = DNData::Int64(number);
    return kCXResultOK;
}

CXResult IntToInt64(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 4) {
        return kCXResultBadData;
    }
    out = DNData::Int64(in.ReadRawInt());
    return kCXResultOK;
}

CXResult Int64ToInt(const DNData& in, DNData& out) {
    if (in.data.GetLength() != 8) {
        return kCXResultBadData;
    }
    const int64_t number = in.ReadRawInt64();
    if (number != static_cast<int32_t>(number)) {
        return kCXResultUnusable;
    }
    out = DNData::Int(static_cast<int32_t>(number));
    return kCXResultOK;
}

/// The geometry types hold the same bytes as the list of their components.
template <uint32_t To, size_t Components> CXResult Recast(const DNData& in, DNData& out) {
    if (in.data.GetLength() != Components * 4) {
        return kCXResultBadData;
    }
    out = DNData(in.data, To);
    return kCXResultOK;
}

using DNTranslator_INT_FLOAT = DNFunctionTranslator<kDNTypeInt, kDNTypeFloat, IntToFloat>;
using DNTranslator_INTS_FLOATS = DNFunctionTranslator<kDNTypeInts, kDNTypeFloats, IntsToFloats>;
using DNTranslator_INT_STRING = DNFunctionTranslator<kDNTypeInt, kDNTypeString, IntToString>;
using DNTranslator_STRING_INT = DNFunctionTranslator<kDNTypeString, kDNTypeInt, StringToInt>;
using DNTranslator_FLOAT_STRING = DNFunctionTranslator<kDNTypeFloat, kDNTypeString, FloatToString>;
using DNTranslator_STRING_FLOAT = DNFunctionTranslator<kDNTypeString, kDNTypeFloat, StringToFloat>;
using DNTranslator_FLOATS_STRING =
    DNFunctionTranslator<kDNTypeFloats, kDNTypeString, FloatsToString>;
using DNTranslator_STRING_FLOATS =
    DNFunctionTranslator<kDNTypeString, kDNTypeFloats, StringToFloats>;
using DNTranslator_BOOL_STRING = DNFunctionTranslator<kDNTypeBool, kDNTypeString, BoolToString>;
using DNTranslator_STRING_BOOL = DNFunctionTranslator<kDNTypeString, kDNTypeBool, StringToBool>;
using DNTranslator_INTS_STRING = DNFunctionTranslator<kDNTypeInts, kDNTypeString, IntsToString>;
using DNTranslator_STRING_INTS = DNFunctionTranslator<kDNTypeString, kDNTypeInts, StringToInts>;
using DNTranslator_INT64_STRING = DNFunctionTranslator<kDNTypeInt64, kDNTypeString, Int64ToString>;
using DNTranslator_STRING_INT64 = DNFunctionTranslator<kDNTypeString, kDNTypeInt64, StringToInt64>;
using DNTranslator_INT_INT64 = DNFunctionTranslator<kDNTypeInt, kDNTypeInt64, IntToInt64>;
using DNTranslator_INT64_INT = DNFunctionTranslator<kDNTypeInt64, kDNTypeInt, Int64ToInt>;
using DNTranslator_Box2i_INTS =
    DNFunctionTranslator<kDNTypeBox2i, kDNTypeInts, Recast<kDNTypeInts, 4>>;
using DNTranslator_INTS_Box2i =
    DNFunctionTranslator<kDNTypeInts, kDNTypeBox2i, Recast<kDNTypeBox2i, 4>>;
using DNTranslator_Vector2i_INTS =
    DNFunctionTranslator<kDNTypeVector2i, kDNTypeInts, Recast<kDNTypeInts, 2>>;
using DNTranslator_INTS_Vector2i =
    DNFunctionTranslator<kDNTypeInts, kDNTypeVector2i, Recast<kDNTypeVector2i, 2>>;
using DNTranslator_Vector2_FLOATS =
    DNFunctionTranslator<kDNTypeVector2, kDNTypeFloats, Recast<kDNTypeFloats, 2>>;
using DNTranslator_FLOATS_Vector2 =
    DNFunctionTranslator<kDNTypeFloats, kDNTypeVector2, Recast<kDNTypeVector2, 2>>;
using DNTranslator_CXColor_FLOATS =
    DNFunctionTranslator<kDNTypeColor, kDNTypeFloats, Recast<kDNTypeFloats, 4>>;
using DNTranslator_FLOATS_CXColor =
    DNFunctionTranslator<kDNTypeFloats, kDNTypeColor, Recast<kDNTypeColor, 4>>;

using TranslatorList = std::vector<const DNTranslator*>;

void Append(TranslatorList& list, const DNTranslator* translator) {
    if (list.size() == list.capacity()) {
        list.reserve(list.capacity() + kListGrowth);
    }
    list.push_back(translator);
}

template <typename... Translators> void AppendOwn(TranslatorList& list) {
    (Append(list, new Translators), ...);
}

/// Never destroyed: static objects may translate in their destructors.
TranslatorList& GetList() {
    static TranslatorList* const list = [] {
        auto* own = new TranslatorList;
        AppendOwn<DNTranslator_INT_FLOAT, DNTranslator_INTS_FLOATS, DNTranslator_INT_STRING,
                  DNTranslator_STRING_INT, DNTranslator_FLOAT_STRING, DNTranslator_STRING_FLOAT,
                  DNTranslator_FLOATS_STRING, DNTranslator_STRING_FLOATS, DNTranslator_BOOL_STRING,
                  DNTranslator_STRING_BOOL, DNTranslator_INTS_STRING, DNTranslator_STRING_INTS,
                  DNTranslator_INT64_STRING, DNTranslator_STRING_INT64, DNTranslator_INT_INT64,
                  DNTranslator_INT64_INT, DNTranslator_Box2i_INTS, DNTranslator_INTS_Box2i,
                  DNTranslator_Vector2i_INTS, DNTranslator_INTS_Vector2i,
                  DNTranslator_Vector2_FLOATS, DNTranslator_FLOATS_Vector2,
                  DNTranslator_CXColor_FLOATS, DNTranslator_FLOATS_CXColor>(*own);
        return own;
    }();
    return *list;
}

} // namespace

void DNTranslator::Register(const DNTranslator* translator) {
    Append(GetList(), translator);
}

CXResult Translate(const DNData& value, uint32_t toType, DNData& out) {
    if (value.type == toType) {
        out = value;
        return kCXResultOK;
    }
    if (value.IsNone()) {
        out = DNData();
        return kCXResultOK;
    }
    const TranslatorList& list = GetList();
    for (const DNTranslator* direct : list) {
        if (direct->GetFromType() != value.type || direct->GetToType() != toType) {
            continue;
        }
        DNData converted;
        const CXResult result = direct->Translate(value, converted);
        if (result != kCXResultUnusable) {
            out = converted;
            return result;
        }
    }
    for (const DNTranslator* first : list) {
        if (first->GetFromType() != value.type) {
            continue;
        }
        for (const DNTranslator* second : list) {
            if (second->GetFromType() != first->GetToType() || second->GetToType() != toType) {
                continue;
            }
            DNData between;
            DNData converted;
            CXResult result = first->Translate(value, between);
            if (result == kCXResultOK) {
                result = second->Translate(between, converted);
            }
            if (result != kCXResultUnusable) {
                out = converted;
                return result;
            }
        }
    }
    out = DNData();
    return kCXResultUnusable;
}
