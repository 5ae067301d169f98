#include "kit/VelPatchJson.h"

#include "core/CXText.h"

void VelPatchJson::NewLine() {
    m_text.AppendByte('\n');
    for (int i = 0; i < m_depth; i++) {
        m_text.Append("  ");
    }
}

void VelPatchJson::Begin(const char* name) {
    if (m_depth > 0) {
        if (!m_isFirst) {
            m_text.AppendByte(',');
        }
        NewLine();
    }
    m_isFirst = false;
    if (name != nullptr) {
        AppendQuoted(name);
        m_text.Append(": ");
    }
}

void VelPatchJson::Open(const char* name, char bracket) {
    Begin(name);
    m_text.AppendByte(bracket);
    m_depth++;
    m_isFirst = true;
}

void VelPatchJson::Close(char bracket) {
    m_depth--;
    if (!m_isFirst) {
        NewLine();
    }
    m_text.AppendByte(bracket);
    m_isFirst = false;
}

void VelPatchJson::PutText(const char* name, absl::string_view text) {
    Begin(name);
    AppendQuoted(text);
}

void VelPatchJson::PutNumber(const char* name, int64_t number) {
    Begin(name);
    m_text.AppendFormat("%d", number);
}

void VelPatchJson::PutNumber(const char* name, uint64_t number) {
    Begin(name);
    m_text.AppendFormat("%d", number);
}

void VelPatchJson::PutBool(const char* name, bool value) {
    Begin(name);
    m_text.Append(value ? "true" : "false");
}

CXString VelPatchJson::Finish() {
    Close('}');
    m_text.AppendByte('\n');
    return m_text.ToString();
}

void VelPatchJson::AppendQuoted(absl::string_view text) {
    m_text.AppendByte('"');
    while (!text.empty()) {
        const unsigned char byte = static_cast<unsigned char>(text[0]);
        uint32_t code = 0;
        uint32_t size = 0;
        if (byte == '"' || byte == '\\') {
            m_text.AppendByte('\\');
            m_text.AppendByte(text[0]);
            size = 1;
        } else if (byte < 0x20) {
            m_text.AppendFormat("\\u%04x", byte);
            size = 1;
        } else if (DecodeCodePoint(text, code, size)) {
            m_text.Append(text.substr(0, size));
        } else {
            m_text.Append("\xEF\xBF\xBD");
            size = 1;
        }
        text.remove_prefix(size);
    }
    m_text.AppendByte('"');
}
