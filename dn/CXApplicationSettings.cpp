#include "dn/CXApplicationSettings.h"

#include "core/CXLog.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "stream/CXStreamFile.h"

void CXApplicationSettings::Open(const CXString& path) {
    m_path = path;
    m_root = new DNMemoryValue;
    m_isOpen = true;
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (file.GetLastError() == kCXResultOK) {
        m_root = TextConfig::Read(file);
    }
}

void CXApplicationSettings::Close() {
    m_isOpen = false;
    m_path.Clear();
    m_root.Clear();
}

DNValueRef CXApplicationSettings::GetSettingsByLabel(const CXString& label) const {
    return m_root->Get(label);
}

void CXApplicationSettings::SetSettingsByLabel(const CXString& label, const DNValueRef& value) {
    if (!m_isOpen) {
        CXLogFormat("CXApplicationSettings::SetSettingsByLabel> can't save settings '%s' while "
                    "settings are not open",
                    label.GetData());
        return;
    }
    m_root->Set(DNData::String(label), value);
    CXStreamFile file;
    file.Open(m_path, kOpenWrite | kOpenCreate | kOpenTruncate);
    if (file.GetLastError() != kCXResultOK) {
        CXLogFormat("CXApplicationSettings::SetSettingsByLabel> failed to create settings file: %s",
                    m_path.GetData());
        return;
    }
    TextConfig::Write(*m_root, file);
}
