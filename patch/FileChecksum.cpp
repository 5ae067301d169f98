#include "patch/FileChecksum.h"

#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

CXResult MD5OfFile(const CXString& path, CXString& checksum) {
    checksum.Clear();
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    CXString found = MD5OfStream(file, file.GetSize());
    if (file.GetLastError() != kCXResultOK) {
        return file.GetLastError();
    }
    checksum = std::move(found);
    return kCXResultOK;
}
