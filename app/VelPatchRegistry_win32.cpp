#include "app/VelPatchRegistry.h"

#include "core/CXStringUTF16.h"

#include <algorithm>

#include "core/win32_api.h"

namespace {

/// Units of the first buffer for a value's name, and for its data; both grow as needed.
constexpr DWORD kFirstUnits = 2048;

const wchar_t* Wide(const CXStringUTF16& text) {
    return reinterpret_cast<const wchar_t*>(text.GetUnits());
}

HKEY HiveOf(VelPatchRegistryRoot root) {
    // The system's own constants are made of the same 32 bits, with their sign.
    return reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(root)));
}

CXResult ResultOf(LSTATUS status) {
    return CXResultFromWin32Error(static_cast<uint32_t>(status));
}

/// Text of a value: the units up to the terminator that may or may not be stored with it.
CXString TextOf(const std::vector<wchar_t>& units, DWORD bytes) {
    size_t count = std::min<size_t>(bytes / sizeof(wchar_t), units.size());
    while (count > 0 && units[count - 1] == 0) {
        count--;
    }
    return FromUTF16(CXStringUTF16(reinterpret_cast<const char16_t*>(units.data()), count));
}

/// An open key, closed on leaving.
class OpenKey {
public:
    OpenKey() = default;
    ~OpenKey() {
        if (m_key != nullptr) {
            ::RegCloseKey(m_key);
        }
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;

    HKEY* Receive() { return &m_key; }
    HKEY Get() const { return m_key; }

private:
    HKEY m_key = nullptr;
};

class SystemRegistry : public VelPatchRegistry {
public:
    CXResult SetString(Root root, const CXString& path, const CXString& name,
                       const CXString& data) override {
        const CXStringUTF16 text = ToUTF16(data);
        return SetValue(root, path, name, REG_SZ, text.GetUnits(),
                        (text.CountUnits() + 1) * sizeof(char16_t));
    }

    CXResult SetNumber(Root root, const CXString& path, const CXString& name,
                       int32_t number) override {
        return SetValue(root, path, name, REG_DWORD, &number, sizeof number);
    }

    CXResult DeleteValue(Root root, const CXString& path, const CXString& name) override {
        return ResultOf(
            ::RegDeleteKeyValueW(HiveOf(root), Wide(ToUTF16(path)), Wide(ToUTF16(name))));
    }

    CXResult DeleteKey(Root root, const CXString& path) override {
        return ResultOf(::RegDeleteKeyExW(HiveOf(root), Wide(ToUTF16(path)), KEY_WOW64_64KEY, 0));
    }

    CXResult ListStrings(Root root, const CXString& path,
                         std::vector<VelPatchRegistryValue>& out) override {
        out.clear();
        OpenKey key;
        const LSTATUS opened = ::RegOpenKeyExW(HiveOf(root), Wide(ToUTF16(path)), 0,
                                               KEY_READ | KEY_WOW64_64KEY, key.Receive());
        if (opened != ERROR_SUCCESS) {
            return ResultOf(opened);
        }
        std::vector<wchar_t> name(kFirstUnits);
        std::vector<wchar_t> data(kFirstUnits);
        for (DWORD index = 0;;) {
            DWORD nameUnits = static_cast<DWORD>(name.size());
            DWORD dataBytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
            DWORD type = REG_NONE;
            const LSTATUS status =
                ::RegEnumValueW(key.Get(), index, name.data(), &nameUnits, nullptr, &type,
                                reinterpret_cast<BYTE*>(data.data()), &dataBytes);
            if (status == ERROR_MORE_DATA && name.size() < kMaxUnits && data.size() < kMaxUnits) {
                // It doesn't say for certain which of them was too short.
                name.resize(name.size() * 2);
                data.resize(std::max<size_t>(data.size() * 2, dataBytes / sizeof(wchar_t) + 1));
                continue;
            }
            if (status == ERROR_NO_MORE_ITEMS) {
                return kCXResultOK;
            }
            if (status != ERROR_SUCCESS) {
                return ResultOf(status);
            }
            if (type == REG_SZ) {
                out.push_back({FromUTF16(CXStringUTF16(
                                   reinterpret_cast<const char16_t*>(name.data()), nameUnits)),
                               TextOf(data, dataBytes)});
            }
            index++;
        }
    }

    CXResult ReadString(Root root, const CXString& path, const CXString& name,
                        CXString& out) override {
        out.Clear();
        OpenKey key;
        LSTATUS status =
            ::RegOpenKeyExW(HiveOf(root), Wide(ToUTF16(path)), 0, KEY_READ, key.Receive());
        if (status != ERROR_SUCCESS) {
            return ResultOf(status);
        }
        const CXStringUTF16 wideName = ToUTF16(name);
        std::vector<wchar_t> data(kFirstUnits);
        for (;;) {
            DWORD bytes = static_cast<DWORD>(data.size() * sizeof(wchar_t));
            DWORD type = REG_NONE;
            status = ::RegQueryValueExW(key.Get(), Wide(wideName), nullptr, &type,
                                        reinterpret_cast<BYTE*>(data.data()), &bytes);
            if (status == ERROR_MORE_DATA && data.size() < kMaxUnits) {
                data.resize(std::max<size_t>(data.size() * 2, bytes / sizeof(wchar_t) + 1));
                continue;
            }
            if (status == ERROR_SUCCESS && type != REG_SZ && type != REG_EXPAND_SZ) {
                return kCXResultNotFound;
            }
            if (status == ERROR_SUCCESS) {
                out = TextOf(data, bytes);
            }
            return ResultOf(status);
        }
    }

private:
    /// Longer names and texts than this are nobody's.
    static constexpr size_t kMaxUnits = size_t{1} << 24;

    static CXResult SetValue(Root root, const CXString& path, const CXString& name, DWORD type,
                             const void* data, size_t bytes) {
        OpenKey key;
        const LSTATUS opened = ::RegCreateKeyExW(HiveOf(root), Wide(ToUTF16(path)), 0, nullptr, 0,
                                                 KEY_ALL_ACCESS, nullptr, key.Receive(), nullptr);
        if (opened != ERROR_SUCCESS) {
            return ResultOf(opened);
        }
        return ResultOf(::RegSetValueExW(key.Get(), Wide(ToUTF16(name)), 0, type,
                                         static_cast<const BYTE*>(data),
                                         static_cast<DWORD>(bytes)));
    }
};

} // namespace

VelPatchRegistry& VelPatchRegistry::Platform() {
    static SystemRegistry* registry = new SystemRegistry;
    return *registry;
}
