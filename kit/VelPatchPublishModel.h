// What a service file says: the products, patch streams, builds and accounts of a patch stream
// service.
#pragma once

#include "core/CXString.h"

#include <cstddef>
#include <vector>

/// A patch on offer: its two files and the words that the player reads.
struct VelPatchPublishPatch {
    CXString place;       ///< "FILE:LINE: key/key", where the service file tells of it
    CXString controlPath; ///< absolute
    CXString dataPath;    ///< absolute
    CXString description;
};

/// What one build of the game is offered.
struct VelPatchPublishBuild {
    CXString place;
    CXString name;           ///< of the service file alone
    CXString anchorChecksum; ///< MD5 of the anchor file, 32 lower-case characters
    CXString anchorPath;     ///< the anchor file that the checksum is to be taken of, or empty
    bool hasPatch = false;   ///< without one this is the newest build
    VelPatchPublishPatch patch;
};

/// What a copy that installs is offered; it names itself by its installation id.
struct VelPatchPublishInstallation {
    CXString id;
    VelPatchPublishPatch patch;
};

struct VelPatchPublishStream {
    CXString place;
    CXString id;   ///< no blank in it; unlike every other stream's of the service
    CXString name; ///< what the player reads
    /// Relative to the game's folder; empty if the builds state their checksums.
    CXString anchorFile;
    bool isRestricted = false; ///< only for accounts that name it
    std::vector<VelPatchPublishBuild> builds;
    std::vector<VelPatchPublishInstallation> installations;
};

struct VelPatchPublishProduct {
    CXString name; ///< of the service file alone
    CXString bundleId;
    CXString installationId;     ///< empty: of any
    std::vector<size_t> streams; ///< indices, in the file's order; the default stream first
};

struct VelPatchPublishAccount {
    CXString user;
    CXString password;
    std::vector<size_t> products; ///< indices of those that it owns, ascending
    std::vector<size_t> streams;  ///< of the restricted ones that it may use, ascending
};

/// The server that the stand-alone configuration starts; not asked for if `listen` is empty.
struct VelPatchPublishServer {
    CXString listen;
    CXString certificate; ///< absolute
    CXString certificateKey;
};

struct VelPatchPublishService {
    CXString baseAddress;  ///< "https://.../"
    CXString filesAddress; ///< where the patches' files are reached, ends in "/"
    CXString folder;       ///< the published folder as the server sees it; empty: where it is made
    VelPatchPublishServer server;
    std::vector<VelPatchPublishProduct> products;
    std::vector<VelPatchPublishStream> streams;
    std::vector<VelPatchPublishAccount> accounts;
    bool isOpen = true; ///< no accounts: whoever asks is served
    /// The server gets digests of the passwords; a password must then come escaped as the player's
    /// program escapes it.
    bool hashesPasswords = false;
};
