#include "dn/DNValue.h"

#include "core/BlockAlloc.h"
#include "core/CXLock.h"
#include "core/CXStringEdit.h"
#include "dn/DNMemoryDataValue.h"
#include "dn/DNMemoryValue.h"
#include "dn/DNMessages.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace {

/// Values whose last reference went while another value was being freed on this thread: freed one
/// after the other, so that a deep tree needs no deep stack. Null while nothing is being freed.
thread_local std::vector<DNValue*>* t_doomed = nullptr;

/// The value whose release is being announced: its count may touch 0 once more meanwhile.
thread_local const DNValue* t_announced = nullptr;

/// Tells the listeners. False if one of them took a new reference: the value lives on.
bool AnnounceRelease(DNValue* value) {
    if (!value->HasListeners()) {
        return true;
    }
    const DNValue* const outer = t_announced;
    t_announced = value;
    value->AddReference();
    value->Broadcast(CXMessageDNValueParam(kDNValueReleaseValue, value, value));
    value->RemoveReference();
    t_announced = outer;
    return value->GetReferenceCount() == 0;
}

CXCriticalSection& SharedReferenceLock() {
    static CXCriticalSection* const lock = new CXCriticalSection;
    return *lock;
}

void AppendValueText(CXStringEdit& edit, const DNValue& value) {
    constexpr size_t kLongestShown = 256;
    const DNData data = value.GetData();
    if (data.IsNone()) {
        edit.Append("<null>");
    } else if (data.data.GetLength() > kLongestShown) {
        edit.Append("<large>");
    } else {
        edit.Append(data.GetString());
    }
}

} // namespace

DNValue::~DNValue() = default;

void* DNValue::operator new(size_t size) {
    void* block = BlockAlloc::Allocate(size);
    if (!block) {
        std::abort();
    }
    return block;
}

void DNValue::operator delete(void* block, size_t size) {
    BlockAlloc::Free(block, size);
}

DNValue* DNValue::SharedEmpty() {
    static DNValue* const empty = [] {
        auto* value = new DNValue;
        value->AddReference();
        return value;
    }();
    return empty;
}

void DNValue::ReleaseObject() {
    if (t_announced == this) {
        return;
    }
    if (t_doomed) {
        t_doomed->push_back(this);
        return;
    }
    std::vector<DNValue*> doomed;
    t_doomed = &doomed;
    for (DNValue* value = this; value;) {
        if (AnnounceRelease(value)) {
            delete value;
        }
        value = nullptr;
        if (!doomed.empty()) {
            value = doomed.back();
            doomed.pop_back();
        }
    }
    t_doomed = nullptr;
}

DNIteratorRef DNValue::Find(const DNData&) {
    return End();
}

DNIteratorRef DNValue::End() {
    return DNIteratorRef();
}

DNIteratorRef DNValue::Remove(const DNIteratorRef&) {
    return End();
}

void DNValue::Set(const DNData& key, const DNValueRef& value) {
    FindOrCreate(key)->SetValue(value);
}

DNIteratorRef DNValue::First() {
    return At(0);
}

size_t DNValue::GetChildCount() const {
    return 0;
}

DNIteratorRef DNValue::At(size_t) {
    return End();
}

DNValueRef DNValue::Get(const DNData&) const {
    return DNValueRef();
}

DNIteratorRef DNValue::FindOrCreate(const DNData& key) {
    DNIteratorRef iterator = Find(key);
    if (iterator->IsEnd()) {
        iterator->SetKey(key);
    }
    return iterator;
}

void DNValue::RemoveAll() {}

DNData DNValue::GetKey(const DNIteratorRef& iterator) const {
    return iterator->GetKey();
}

DNValueRef DNValue::GetChild(const DNIteratorRef& iterator) const {
    return iterator->GetValue();
}

uint32_t DNValue::GetType() const {
    return kDNTypeNone;
}

DNData DNValue::GetData() const {
    return DNData();
}

void DNValue::SetData(const DNData&) {}

DNValueRef DNValue::CreateValue(const DNData& data) {
    return new DNMemoryDataValue(data);
}

DNValueRef DNValue::GetMeta() {
    return new DNMemoryValue;
}

DNValueRef DNValue::FindMeta() const {
    return DNValueRef();
}

CXString DNValue::GetDebugText() const {
    return CXString("DNValue{}");
}

DNValueRef DNValue::Get(absl::string_view key) const {
    return Get(DNData::String(key));
}

DNValueRef DNValue::Get(const char* key) const {
    return Get(DNData::String(key));
}

DNIteratorRef DNValue::Find(const char* key) {
    return Find(DNData::String(key));
}

void DNValue::Set(const char* key, const DNValueRef& value) {
    Set(DNData::String(key), value);
}

void DNValue::SetNew(const DNData& key, const DNData& data) {
    Set(key, CreateValue(data));
}

void DNValue::SetNew(const char* key, const DNData& data) {
    SetNew(DNData::String(key), data);
}

DNValueRef DNValue::GetOrCreateFolder(const DNData& key) {
    return FindOrCreate(key)->GetChildren();
}

DNValueRef DNValue::ChildAt(size_t) const {
    return DNValueRef();
}

DNData DNValue::KeyAt(size_t) const {
    return DNData();
}

bool DNValue::GetBool(bool defaultValue) const {
    return GetData().GetBool(defaultValue);
}

int32_t DNValue::GetInt(int32_t defaultValue) const {
    return GetData().GetInt(defaultValue);
}

int64_t DNValue::GetInt64(int64_t defaultValue) const {
    return GetData().GetInt64(defaultValue);
}

float DNValue::GetFloat(float defaultValue) const {
    return GetData().GetFloat(defaultValue);
}

CXString DNValue::GetString(const CXString& defaultValue) const {
    return GetData().GetString(defaultValue);
}

std::vector<float> DNValue::GetFloats(const std::vector<float>& defaultValue) const {
    return GetData().GetFloats(defaultValue);
}

std::vector<int32_t> DNValue::GetInts(const std::vector<int32_t>& defaultValue) const {
    return GetData().GetInts(defaultValue);
}

CXString DNValue::Dump() const {
    constexpr size_t kIndentPerLevel = 2;
    struct Level {
        const DNValue* folder; // held by its parent, which nobody changes meanwhile
        size_t next;
    };
    CXStringEdit out;
    if (!IsFolder()) {
        CXStringEdit text;
        AppendValueText(text, *this);
        out.AppendFormat("%sv: %s\n", "", text.ToString().GetData());
        return out.ToString();
    }
    std::vector<Level> levels{{this, 0}};
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.folder->GetChildCount()) {
            levels.pop_back();
            continue;
        }
        const size_t index = level.next++;
        const std::string indent((levels.size() - 1) * kIndentPerLevel, ' ');
        out.AppendFormat("%sk: %s", indent.c_str(),
                         level.folder->KeyAt(index).GetString().GetData());
        out.AppendByte('\n');
        const DNValueRef child = level.folder->ChildAt(index);
        if (child->IsFolder()) {
            levels.push_back({child.Get(), 0});
            continue;
        }
        CXStringEdit text;
        AppendValueText(text, *child);
        out.AppendFormat("%sv: %s\n", indent.c_str(), text.ToString().GetData());
    }
    return out.ToString();
}

DNValueRef DNValueRef::FromShared(const DNValueRef& holder) {
    const CXCriticalSectionGuard guard(SharedReferenceLock());
    return holder;
}

void DNValueRef::StoreShared(DNValueRef& holder, const DNValueRef& value) {
    DNValueRef old(value); // released outside the lock: a release may send messages
    const CXCriticalSectionGuard guard(SharedReferenceLock());
    holder.Swap(old);
}
