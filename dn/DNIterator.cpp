#include "dn/DNIterator.h"

#include "core/BlockAlloc.h"

#include <cstdlib>

DNIterator::~DNIterator() = default;

void* DNIterator::operator new(size_t size) {
    void* block = BlockAlloc::Allocate(size);
    if (!block) {
        std::abort();
    }
    return block;
}

void DNIterator::operator delete(void* block, size_t size) {
    BlockAlloc::Free(block, size);
}

DNValueRef DNIterator::GetValue() const {
    return DNValueRef();
}

void DNIterator::SetValue(const DNValueRef&) {}

DNValueRef DNIterator::GetChildren() {
    return DNValueRef();
}

DNData DNIterator::GetKey() const {
    return DNData();
}

void DNIterator::SetKey(const DNData&) {}

DNIteratorRef DNIterator::Remove() {
    return DNIteratorRef();
}

bool DNIterator::IsEnd() const {
    return true;
}

void DNIterator::Next() {}

CXString DNIterator::GetDebugText() const {
    return CXString("DNIterator{}");
}

DNIterator* DNIteratorRef::SharedEnd() {
    static DNIterator* const end = [] {
        auto* iterator = new DNIterator;
        iterator->AddReference();
        return iterator;
    }();
    return end;
}
