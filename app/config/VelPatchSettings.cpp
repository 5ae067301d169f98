#include "app/config/VelPatchSettings.h"

#include "app/config/VelPatchTreeFile.h"
#include "core/CXEncoding.h"
#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamTools.h"

namespace {

constexpr uint32_t kRecordVersion = 1;
constexpr size_t kVersionBytes = 4;
constexpr char kOwnerOnlyFolder[] = "posix:0700";
constexpr char kOwnerOnlyFile[] = "posix:0600";

CXString& BaseFolderOverride() {
    static CXString folder;
    return folder;
}

/// Path of the settings file, its folder made if missing; empty if the system can't name a place.
CXString PrepareSettingsPath(const CXString& bundleId) {
    const CXString base =
        BaseFolderOverride().IsEmpty()
            ? CXFileSystem::GetKnownFolder(CXFileSystem::KnownFolder::LocalAppData)
            : BaseFolderOverride();
    if (base.IsEmpty()) {
        return CXString();
    }
    // The base is the system's own and only missing for a user who never ran anything.
    CXFileSystem::CreateDirectories(base);
    const CXString folder = CXFileSystem::Join(base, bundleId);
    if (!CXFileSystem::Exists(folder) && CXFileSystem::CreateDirectory(folder) == kCXResultOK) {
        CXFileSystem::SetFilePermissions(folder, kOwnerOnlyFolder);
        CXFileSystem::GiveToFolderOwner(folder);
    }
    return CXFileSystem::Join(folder, "velpatch-settings.dat");
}

/// Once a field couldn't be read, nothing behind it can be trusted.
void ReadField(CXStream& stream, CXString& field) {
    if (stream.GetLastError() != kCXResultOK || !ReadStreamString(stream, field)) {
        field.Clear();
    }
}

uint32_t ReadVersion(absl::string_view value) {
    uint32_t version = 0;
    for (size_t i = 0; i < kVersionBytes; ++i) {
        version = (version << 8) | static_cast<unsigned char>(value[i]);
    }
    return version;
}

} // namespace

CXString EncodeSettingsRecord(const VelPatchSettings& settings) {
    CXStreamDynamicBuffer body;
    for (const CXString* field :
         {&settings.username, &settings.password, &settings.streamId, &settings.streamName,
          &settings.patchControlFile, &settings.patchDataFile}) {
        WriteStreamString(body, *field);
    }
    if (body.GetLastError() != kCXResultOK) {
        return CXString();
    }
    CXStringEdit value;
    for (size_t i = 0; i < kVersionBytes; ++i) {
        value.AppendByte(static_cast<char>(kRecordVersion >> (8 * (kVersionBytes - 1 - i))));
    }
    Base64Encode(body.GetData(), static_cast<size_t>(body.GetSize()), value);
    return value.ToString();
}

void DecodeSettingsRecord(absl::string_view value, VelPatchSettings& settings) {
    settings = VelPatchSettings();
    if (value.size() < kVersionBytes) {
        return;
    }
    const uint32_t version = ReadVersion(value);
    CXStringEdit body;
    if (version > kRecordVersion ||
        Base64Decode(value.substr(kVersionBytes), body) != kCXResultOK) {
        return;
    }
    CXStreamStaticBuffer stream(static_cast<const void*>(body.GetData()), body.GetLength());
    ReadField(stream, settings.username);
    ReadField(stream, settings.password);
    ReadField(stream, settings.streamId);
    ReadField(stream, settings.streamName);
    if (version > 0) {
        ReadField(stream, settings.patchControlFile);
        ReadField(stream, settings.patchDataFile);
    }
}

void SetSettingsBaseFolder(const CXString& folder) {
    BaseFolderOverride() = folder;
}

CXString SettingsKeyOfTarget(const CXString& target) {
    const CXString path = CXFileSystem::NormalisePath(CXFileSystem::FromForeignPath(target));
    absl::string_view text = path.View();
    while (!text.empty() && text.back() == '/') {
        text.remove_suffix(1); // of a root too
    }
    CXString key(text);
    key.ToLower();
    return key;
}

void LoadSettings(VelPatchSettings& settings, const CXString& bundleId, const CXString& target) {
    settings = VelPatchSettings();
    if (target.IsEmpty()) {
        return;
    }
    const CXString path = PrepareSettingsPath(bundleId);
    if (path.IsEmpty()) {
        return;
    }
    DNValueRef root;
    ReadTreeFile(path, root);
    DecodeSettingsRecord(root->Get(SettingsKeyOfTarget(target))->GetString(), settings);
}

void SaveSettings(const VelPatchSettings& settings, const CXString& bundleId,
                  const CXString& target) {
    const CXString value = EncodeSettingsRecord(settings);
    if (value.IsEmpty()) {
        return;
    }
    const CXString path = PrepareSettingsPath(bundleId);
    if (path.IsEmpty()) {
        return;
    }
    DNValueRef root;
    if (!ReadTreeFile(path, root)) {
        return; // writing would lose the records of all other targets
    }
    root->SetNew(DNData::String(SettingsKeyOfTarget(target)), DNData::String(value));
    WriteTreeFile(path, *root, kOwnerOnlyFile);
}

void ApplySettingsOverride(VelPatchSettings& settings, const CXString& encoded) {
    CXStringEdit text;
    if (Base64Decode(encoded, text) != kCXResultOK) {
        return;
    }
    const DNValueRef root(new DNMemoryValue);
    TextConfig::Parse(text.GetData(), text.GetLength(), *root);
    const struct {
        const char* key;
        CXString& field;
    } fields[] = {{"username", settings.username},
                  {"password", settings.password},
                  {"stream-id", settings.streamId}};
    for (const auto& entry : fields) {
        const DNIteratorRef found = root->Find(entry.key);
        if (!found->IsEnd()) {
            entry.field = found->GetValue()->GetString();
        }
    }
}
