#include "net/CXHTTPMessages.h"

void CXHTTPRequest::Add(const CXString& name, const CXString& value) {
    CXString key = name;
    key.ToLower();
    headers.emplace(std::move(key), value);
}

CXString CXHTTPReply::Find(const char* name) const {
    const auto found = headers.find(CXString(name));
    return found == headers.end() ? CXString() : found->second;
}
