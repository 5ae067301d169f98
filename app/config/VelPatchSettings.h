// What is remembered of each target folder between runs.
#pragma once

#include "core/CXString.h"

#include <map>

/// One target's record. It lies in "velpatch-settings.dat" in the user's data folder, under the
/// product's bundle identifier; one file serves all targets of a product. The password is stored
/// in Base64 only, so folder and file are readable by their owner alone where the system can say
/// so.
struct VelPatchSettings {
    CXString username;
    CXString password;
    std::map<CXString, CXString> streams; ///< id to display name; not saved
    CXString streamId;
    CXString streamName;
    CXString patchControlFile; ///< address of the control file
    CXString patchDataFile;    ///< address of the installation data
};

/// Replaces the whole record by what is saved for the target. What can't be read, or was written
/// by a later version of the program, comes out empty; nothing is reported.
void LoadSettings(VelPatchSettings& settings, const CXString& bundleId, const CXString& target);

/// Puts the record into the file, beside those of other targets, by way of a temporary file, so
/// that a crash leaves the old or the new one. A failure leaves the old file, and so does an old
/// file that can't be read, for the sake of the other records; nothing is reported.
void SaveSettings(const VelPatchSettings& settings, const CXString& bundleId,
                  const CXString& target);

/// Applies the value of the "settings" option: Base64 of a text with up to three keys, "username",
/// "password" and "stream-id". A value that doesn't decode changes nothing.
void ApplySettingsOverride(VelPatchSettings& settings, const CXString& encoded);

/// The value that stands for a record: a version word and Base64 of the saved fields. Decoding
/// replaces the whole record and leaves empty what the value doesn't give.
CXString EncodeSettingsRecord(const VelPatchSettings& settings);
void DecodeSettingsRecord(absl::string_view value, VelPatchSettings& settings);

/// The name under which a target's record is kept: the normalised path without trailing
/// "/", ASCII letters in lower case. Paths that differ only in the case of such letters share a
/// record.
CXString SettingsKeyOfTarget(const CXString& target);

/// Replaces the user's data folder, below which the settings lie (for tests); empty restores it.
void SetSettingsBaseFolder(const CXString& folder);
