// How values lie in the system's registry for other programs.
#include "app/VelPatchRegistry.h"

#include "core/win32_api.h"

#include <gtest/gtest.h>

TEST(RegistryWin32, KindsAndSizesOfValues) {
    VelPatchRegistry& registry = VelPatchRegistry::Platform();
    const CXString key = CXString::Format("Software\\VelPatchTest-%d", ::GetCurrentProcessId());
    const VelPatchRegistryRoot root = VelPatchRegistryRoot::CurrentUser;
    EXPECT_EQ(registry.SetString(root, key, "text", "\xC3\xA4\xF0\x9F\x98\x80"), kCXResultOK);
    EXPECT_EQ(registry.SetNumber(root, key, "number", -2), kCXResultOK);
    HKEY handle = nullptr;
    const std::wstring path = L"Software\\VelPatchTest-" + std::to_wstring(::GetCurrentProcessId());
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_ALL_ACCESS, &handle), 0);
    DWORD type = 0;
    wchar_t text[16] = {};
    DWORD bytes = sizeof text;
    EXPECT_EQ(
        ::RegQueryValueExW(handle, L"text", nullptr, &type, reinterpret_cast<BYTE*>(text), &bytes),
        0);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(bytes, 8u) << "with its terminator";
    EXPECT_EQ(std::wstring(text), L"\u00E4\xD83D\xDE00");
    int32_t number = 0;
    bytes = sizeof number;
    EXPECT_EQ(::RegQueryValueExW(handle, L"number", nullptr, &type,
                                 reinterpret_cast<BYTE*>(&number), &bytes),
              0);
    EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
    EXPECT_EQ(number, -2);

    // What others stored: no terminator, text that is to be expanded, a name beyond the first
    // buffer's size.
    ::RegSetValueExW(handle, L"bare", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"ab"), 4);
    ::RegSetValueExW(handle, L"expand", 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(L"%x%"), 8);
    const std::wstring large(20000, L'l');
    ::RegSetValueExW(handle, std::wstring(9000, L'n').c_str(), 0, REG_SZ,
                     reinterpret_cast<const BYTE*>(large.c_str()), 40002);
    ::RegCloseKey(handle);
    CXString read;
    EXPECT_EQ(registry.ReadString(root, key, "bare", read), kCXResultOK);
    EXPECT_EQ(read, "ab");
    EXPECT_EQ(registry.ReadString(root, key, "expand", read), kCXResultOK);
    EXPECT_EQ(read, "%x%");
    std::vector<VelPatchRegistryValue> values;
    EXPECT_EQ(registry.ListStrings(root, key, values), kCXResultOK);
    size_t lengths = 0;
    for (const VelPatchRegistryValue& value : values) {
        lengths += value.data.GetLength();
    }
    EXPECT_EQ(values.size(), 3u);
    EXPECT_EQ(lengths, 20000u + 2 + 6);
    EXPECT_EQ(registry.DeleteKey(root, key), kCXResultOK);
}
