#include "kit/VelPatchPublishReader.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchPublishConfig.h"
#include "net/CXURI.h"

#include <algorithm>
#include <functional>
#include <initializer_list>

namespace {

using Entry = VelPatchPublishText::Entry;

constexpr size_t kChecksumLength = 32;
constexpr size_t kNotFound = static_cast<size_t>(-1);

bool HoldsOnly(absl::string_view text, absl::string_view signs) {
    return std::all_of(text.begin(), text.end(), [&](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
               (byte >= '0' && byte <= '9') || signs.find(byte) != absl::string_view::npos;
    });
}

template <typename Item>
size_t IndexOf(const std::vector<Item>& items, const CXString Item::*name, const CXString& wanted) {
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].*name == wanted) {
            return i;
        }
    }
    return kNotFound;
}

class Reader {
public:
    Reader(VelPatchPublishText& text, const CXString& folder, VelPatchPublishService& service)
        : m_text(text), m_folder(folder), m_service(service) {}

    void Run() {
        const Entry root = m_text.GetRoot();
        m_text.AllowKeys(root, {"base-address", "files-address", "folder", "server", "streams",
                                "products", "accounts", "hash-passwords"});
        m_service.baseAddress = ReadAddress(root, "base-address", true);
        m_service.filesAddress = ReadAddress(root, "files-address", false);
        if (m_service.filesAddress.IsEmpty()) {
            m_service.filesAddress = CXString::Format("%sfiles/", m_service.baseAddress.GetData());
        }
        m_service.folder = m_text.GetText(root, "folder", false);
        ReadServer(m_text.GetFolder(root, "server"));
        // Each refers to those before it.
        ReadAll("streams", [this](const Entry& entry) { ReadStream(entry); });
        ReadAll("products", [this](const Entry& entry) { ReadProduct(entry); });
        m_service.hashesPasswords = m_text.GetFlag(root, "hash-passwords");
        m_service.isOpen = root.value->Get("accounts")->GetType() == kDNTypeNone;
        ReadAll("accounts", [this](const Entry& entry) { ReadAccount(entry); });
        CheckUse();
    }

private:
    void ReadAll(const char* key, const std::function<void(const Entry&)>& read) {
        for (const Entry& entry : m_text.GetEntries(m_text.GetFolder(m_text.GetRoot(), key))) {
            if (!entry.IsFolder()) {
                m_text.Complain(entry, nullptr, "must hold a folder in braces");
            } else if (entry.name.IsEmpty() || !VelPatchPublishText::IsPlain(entry.name, false)) {
                m_text.Complain(entry, nullptr, "the name is empty or holds control characters");
            } else {
                read(entry);
            }
        }
    }

    /// An address of the service. It stands in the web server's configuration and in replies, so
    /// only signs that mean nothing to either may be in it.
    CXString ReadAddress(const Entry& root, const char* key, bool isRequired) {
        CXString address = m_text.GetText(root, key, isRequired);
        if (address.IsEmpty()) {
            return address;
        }
        const CXURI uri(address.View());
        const CXString inner = CXString::Format("/%s", uri.path.GetData());
        if (uri.scheme != "https" || uri.host.IsEmpty() || !uri.query.IsEmpty() ||
            !uri.user.IsEmpty() || !HoldsOnly(address, "-._~:/") || address.View().back() != '/' ||
            CXFileSystem::NormalisePath(inner) != CXFileSystem::StripTrailingSeparators(inner)) {
            m_text.Complain(root, key, "must look like \"https://host/folder/\"");
        }
        return address;
    }

    /// Texts that requests are compared with, in one word of the web server's configuration.
    void CheckLength(const Entry& entry, std::initializer_list<CXString> texts) {
        size_t length = 0;
        for (const CXString& text : texts) {
            length += VelPatchPublishConfig::MatchEscaped(text).GetLength();
        }
        if (length > VelPatchPublishConfig::kLongestMatch) {
            m_text.Complain(entry, nullptr, "is too long for the web server's configuration");
        }
    }

    CXString ReadPath(const Entry& parent, const char* key, bool isRequired) {
        const CXString text = m_text.GetText(parent, key, isRequired);
        return text.IsEmpty() ? text : ResolvePath(text);
    }

    CXString ResolvePath(const CXString& text) const {
        const CXString path = CXFileSystem::FromForeignPath(text);
        return CXFileSystem::NormalisePath(
            CXFileSystem::IsAbsolute(path) ? path : CXFileSystem::Join(m_folder, path));
    }

    void ReadServer(const Entry& entry) {
        VelPatchPublishServer& server = m_service.server;
        m_text.AllowKeys(entry, {"listen", "certificate", "certificate-key"});
        if (entry.value->GetChildCount() == 0) {
            return;
        }
        server.listen = m_text.GetText(entry, "listen", true);
        if (!HoldsOnly(server.listen, ".:[]*")) {
            m_text.Complain(entry, "listen", "must look like \"443\" or \"127.0.0.1:8443\"");
        }
        server.certificate = ReadPath(entry, "certificate", true);
        server.certificateKey = ReadPath(entry, "certificate-key", true);
        for (const CXString& path : {server.certificate, server.certificateKey}) {
            if (path.FindChar('$') >= 0) {
                m_text.Complain(entry, nullptr, "the web server can't name a path that holds '$'");
            }
        }
    }

    VelPatchPublishPatch ReadPatch(const Entry& entry) {
        VelPatchPublishPatch patch;
        patch.place = m_text.GetPlace(entry);
        patch.controlPath = ReadPath(entry, "control", true);
        patch.dataPath = ReadPath(entry, "data", true);
        patch.description = m_text.GetText(entry, "description", true, true);
        return patch;
    }

    void ReadBuild(const Entry& entry, VelPatchPublishStream& stream) {
        m_text.AllowKeys(entry, {"anchor-checksum", "folder", "control", "data", "description"});
        VelPatchPublishBuild build;
        build.place = m_text.GetPlace(entry);
        build.name = entry.name;
        build.anchorChecksum = m_text.GetText(entry, "anchor-checksum", false);
        build.anchorChecksum.ToLower();
        const CXString folder = ReadPath(entry, "folder", false);
        if (folder.IsEmpty() == build.anchorChecksum.IsEmpty()) {
            m_text.Complain(entry, nullptr, "needs either 'anchor-checksum' or 'folder'");
        }
        if (!build.anchorChecksum.IsEmpty() &&
            (build.anchorChecksum.GetLength() != kChecksumLength ||
             build.anchorChecksum.View().find_first_not_of("0123456789abcdef") !=
                 absl::string_view::npos)) {
            m_text.Complain(entry, "anchor-checksum", "must be an MD5 of 32 hexadecimal digits");
        }
        if (!folder.IsEmpty()) {
            if (stream.anchorFile.IsEmpty()) {
                m_text.Complain(entry, "folder", "the stream states no 'anchor-file'");
            }
            build.anchorPath = CXFileSystem::Join(folder, stream.anchorFile);
        }
        for (const char* key : {"control", "data", "description"}) {
            build.hasPatch |= entry.value->Get(key)->GetType() != kDNTypeNone;
        }
        if (build.hasPatch) {
            build.patch = ReadPatch(entry);
        }
        stream.builds.push_back(build);
    }

    void ReadStream(const Entry& entry) {
        m_text.AllowKeys(entry, {"name", "anchor-file", "restricted", "builds", "installations"});
        VelPatchPublishStream stream;
        stream.place = m_text.GetPlace(entry);
        stream.id = entry.name;
        if (stream.id.View().find(' ') != absl::string_view::npos) {
            m_text.Complain(entry, nullptr, "a stream's id must not hold a blank");
        }
        CheckLength(entry, {stream.id});
        stream.name = m_text.GetText(entry, "name", true);
        stream.anchorFile = m_text.GetText(entry, "anchor-file", false);
        stream.isRestricted = m_text.GetFlag(entry, "restricted");
        for (const Entry& build : m_text.GetEntries(m_text.GetFolder(entry, "builds"))) {
            ReadBuild(build, stream);
        }
        for (const Entry& one : m_text.GetEntries(m_text.GetFolder(entry, "installations"))) {
            m_text.AllowKeys(one, {"control", "data", "description"});
            if (one.name.IsEmpty() || !VelPatchPublishText::IsPlain(one.name, false)) {
                m_text.Complain(one, nullptr, "the id is empty or holds control characters");
            }
            CheckLength(one, {one.name});
            stream.installations.push_back({one.name, ReadPatch(one)});
        }
        if (stream.builds.empty() && stream.installations.empty()) {
            m_text.Complain(entry, nullptr, "holds neither builds nor installations");
        }
        m_service.streams.push_back(stream);
    }

    /// The indices of those that a list names by keys without values.
    template <typename Item>
    std::vector<size_t> ReadNames(const Entry& parent, const char* key,
                                  const std::vector<Item>& items, const CXString Item::*name) {
        std::vector<size_t> found;
        for (const Entry& entry : m_text.GetEntries(m_text.GetFolder(parent, key))) {
            const size_t index = IndexOf(items, name, entry.name);
            if (index == kNotFound) {
                m_text.Complain(entry, nullptr, "there is no such entry in this file");
            } else if (entry.value->GetType() != kDNTypeNone) {
                m_text.Complain(entry, nullptr, "is a name alone and takes no value");
            } else {
                found.push_back(index);
            }
        }
        return found;
    }

    void ReadProduct(const Entry& entry) {
        m_text.AllowKeys(entry, {"bundle-id", "installation-id", "default-stream", "streams"});
        VelPatchPublishProduct product;
        product.name = entry.name;
        product.bundleId = m_text.GetText(entry, "bundle-id", true);
        product.installationId = m_text.GetText(entry, "installation-id", false);
        CheckLength(entry, {product.bundleId, product.installationId});
        product.streams =
            ReadNames(entry, "streams", m_service.streams, &VelPatchPublishStream::id);
        if (product.streams.empty()) {
            m_text.Complain(entry, "streams", "names no stream");
        }
        const CXString first = m_text.GetText(entry, "default-stream", false);
        if (!first.IsEmpty()) {
            const size_t index = IndexOf(m_service.streams, &VelPatchPublishStream::id, first);
            const auto at = std::find(product.streams.begin(), product.streams.end(), index);
            if (at == product.streams.end()) {
                m_text.Complain(entry, "default-stream", "is none of the product's streams");
            } else {
                std::rotate(product.streams.begin(), at, at + 1);
            }
        }
        for (const VelPatchPublishProduct& other : m_service.products) {
            if (other.bundleId == product.bundleId &&
                other.installationId == product.installationId) {
                m_text.Complain(
                    entry, "bundle-id",
                    CXString::Format("product '%s' has the same ids", other.name.GetData()));
            }
        }
        m_service.products.push_back(product);
    }

    void ReadAccount(const Entry& entry) {
        m_text.AllowKeys(entry, {"password", "products", "streams"});
        VelPatchPublishAccount account;
        account.user = entry.name;
        account.password = m_text.GetText(entry, "password", true);
        // A digest has the same length whatever it is made of.
        CheckLength(entry,
                    {account.user, m_service.hashesPasswords ? CXString() : account.password});
        account.products =
            ReadNames(entry, "products", m_service.products, &VelPatchPublishProduct::name);
        account.streams =
            ReadNames(entry, "streams", m_service.streams, &VelPatchPublishStream::id);
        std::sort(account.products.begin(), account.products.end());
        std::sort(account.streams.begin(), account.streams.end());
        for (const size_t index : account.streams) {
            if (!m_service.streams[index].isRestricted) {
                m_text.Complain(entry, "streams",
                                CXString::Format("'%s' is open to every owner; only restricted "
                                                 "streams are named here",
                                                 m_service.streams[index].id.GetData()));
            }
        }
        for (const size_t index : account.streams) {
            if (std::none_of(account.products.begin(), account.products.end(),
                             [&](size_t product) { return HasStream(product, index); })) {
                m_text.Complain(entry, "streams",
                                CXString::Format("'%s' belongs to no product of the account",
                                                 m_service.streams[index].id.GetData()));
            }
        }
        m_service.accounts.push_back(account);
    }

    bool HasStream(size_t product, size_t stream) const {
        const std::vector<size_t>& streams = m_service.products[product].streams;
        return std::find(streams.begin(), streams.end(), stream) != streams.end();
    }

    /// What can't ever be reached is a slip.
    void CheckUse() {
        if (m_service.products.empty()) {
            m_text.Complain(m_text.GetRoot(), "products", "there are no products");
        }
        for (size_t i = 0; i < m_service.streams.size(); ++i) {
            const VelPatchPublishStream& stream = m_service.streams[i];
            bool isUsed = false;
            for (size_t product = 0; product < m_service.products.size(); ++product) {
                isUsed |= HasStream(product, i);
            }
            if (!isUsed) {
                m_text.Complain(stream.place, "no product has this stream");
            }
            if (stream.isRestricted && m_service.isOpen) {
                m_text.Complain(stream.place, "is restricted, but there are no accounts");
            }
        }
    }

    VelPatchPublishText& m_text;
    CXString m_folder;
    VelPatchPublishService& m_service;
};

} // namespace

void ReadPublishService(VelPatchPublishText& text, const CXString& folder,
                        VelPatchPublishService& service) {
    Reader(text, folder, service).Run();
}
