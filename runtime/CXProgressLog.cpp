#include "runtime/CXProgressLog.h"

const CXString CXProgressLog::kLogAdded("CXProgressLog::log-added");
const CXString CXProgressLog::kLogsRemoved("CXProgressLog::logs-removed");
const CXString CXProgressLog::kBecameImmutable("CXProgressLog::became-immutable");
const CXString CXProgressLog::kChildLogModified("CXProgressLog::child-log-modified");

void CXProgressLog::AddLog(const CXString& /*text*/) {}

void CXProgressLog::AddChildLog(const CXString& /*name*/, CXProgressLog* /*child*/) {}

void CXProgressLog::RemoveLogs() {}

void CXProgressLog::MakeImmutable() {}

size_t CXProgressLog::CountLogs() const {
    return 0;
}

CXReference<CXProgressLog> CXProgressLog::GetDefault() {
    static CXReference<CXProgressLog>* instance =
        new CXReference<CXProgressLog>(new CXProgressLog); // static objects may hold it
    return *instance;
}
