// Writes JSON (RFC 8259) for other programs to read.
#pragma once

#include "core/CXString.h"
#include "core/CXStringEdit.h"

#include <cstdint>

/// Builds one document in memory, indented by two spaces a level. The caller opens and closes
/// objects and lists in step; inside an object every value has a name, elsewhere the name is null.
/// Bytes that are no UTF-8 become U+FFFD. One thread.
class VelPatchJson {
public:
    /// Begins with the outermost object.
    VelPatchJson() { Open(nullptr, '{'); }

    void OpenObject(const char* name = nullptr) { Open(name, '{'); }
    void OpenList(const char* name = nullptr) { Open(name, '['); }
    void CloseObject() { Close('}'); }
    void CloseList() { Close(']'); }
    void PutText(const char* name, absl::string_view text);
    void PutNumber(const char* name, int64_t number);
    void PutNumber(const char* name, uint64_t number);
    void PutBool(const char* name, bool value);

    /// Ends the outermost object and gives the document with a line end.
    CXString Finish();

private:
    void Open(const char* name, char bracket);
    void Close(char bracket);
    void Begin(const char* name);
    void AppendQuoted(absl::string_view text);
    void NewLine();

    CXStringEdit m_text;
    int m_depth = 0;
    bool m_isFirst = true; ///< nothing stands yet in the innermost object or list
};
