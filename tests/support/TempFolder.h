// A scratch folder for tests, made on construction and removed with all that is in it.
#pragma once

#include "core/CXString.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <system_error>

/// What stands at one path of a tree.
struct TreeEntry {
    char type = 'f';      ///< 'f' file, 'd' folder, 'l' link
    std::string contents; ///< bytes of a file, destination of a link
    unsigned mode = 0;    ///< permission bits of files and folders; 0 on Windows

    bool operator==(const TreeEntry&) const = default;
    friend void PrintTo(const TreeEntry& entry, std::ostream* out) {
        *out << entry.type << ' ' << std::oct << entry.mode << std::dec << ' '
             << entry.contents.size() << " bytes '" << entry.contents.substr(0, 60) << "'";
    }
};

/// Relative path with "/" -> entry.
using TreeSnapshot = std::map<std::string, TreeEntry>;

class TempFolder {
public:
    TempFolder() {
        static std::atomic<unsigned> serial{0};
        std::random_device device;
        std::error_code error;
        std::filesystem::path base =
            std::filesystem::canonical(std::filesystem::temp_directory_path(error), error);
        do {
            m_root = base /
                     ("velpatch-test-" + std::to_string(device()) + "-" + std::to_string(serial++));
        } while (!std::filesystem::create_directory(m_root, error) && !error);
    }
    ~TempFolder() { RemoveTree(m_root); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// Program path of the folder, or of something below it.
    CXString Path(const std::string& relative = std::string()) const {
        const std::u8string text = Native(relative).generic_u8string();
        return CXString(reinterpret_cast<const char*>(text.data()), text.size());
    }

    /// Writes a file, parents included; replaces what was there.
    void WriteFile(const std::string& relative, const std::string& contents) const {
        std::error_code error;
        std::filesystem::create_directories(Native(relative).parent_path(), error);
        std::ofstream(Native(relative), std::ios::binary | std::ios::trunc) << contents;
    }
    /// Whole contents; empty for a missing file.
    std::string ReadFile(const std::string& relative) const { return ReadNative(Native(relative)); }
    void MakeFolder(const std::string& relative) const {
        std::error_code error;
        std::filesystem::create_directories(Native(relative), error);
    }
    /// Makes a symbolic link; false where the system refuses.
    bool MakeLink(const std::string& relative, const std::string& destination) const {
        std::error_code error;
        std::filesystem::create_symlink(destination, Native(relative), error);
        return !error;
    }
    /// True if anything is there, a dangling link too.
    bool Has(const std::string& relative) const {
        std::error_code error;
        return std::filesystem::exists(std::filesystem::symlink_status(Native(relative), error));
    }
    void SetMode(const std::string& relative, unsigned mode) const {
        std::error_code error;
        std::filesystem::permissions(Native(relative), static_cast<std::filesystem::perms>(mode),
                                     error);
    }
    unsigned GetMode(const std::string& relative) const { return ModeOf(Native(relative)); }
    void Remove(const std::string& relative) const { RemoveTree(Native(relative)); }

    /// Everything below the folder (or below a folder in it); links are not followed.
    TreeSnapshot Tree(const std::string& relative = std::string()) const {
        namespace fs = std::filesystem;
        TreeSnapshot tree;
        std::error_code error;
        const fs::path top = Native(relative);
        for (fs::recursive_directory_iterator it(top, error), end; !error && it != end;
             it.increment(error)) {
            const fs::path path = it->path();
            TreeEntry entry;
            if (it->is_symlink(error)) {
                entry.type = 'l';
                entry.contents = fs::read_symlink(path, error).generic_string();
            } else {
                entry.type = it->is_directory(error) ? 'd' : 'f';
                entry.mode = ModeOf(path);
                entry.contents = entry.type == 'f' ? ReadNative(path) : std::string();
            }
            const std::u8string name = path.lexically_relative(top).generic_u8string();
            tree[std::string(reinterpret_cast<const char*>(name.data()), name.size())] = entry;
        }
        return tree;
    }

private:
    std::filesystem::path Native(const std::string& relative) const {
        return relative.empty()
                   ? m_root
                   : m_root /
                         std::filesystem::path(std::u8string(relative.begin(), relative.end()));
    }
    static std::string ReadNative(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    static unsigned ModeOf(const std::filesystem::path& path) {
        std::error_code error;
        const auto mode = std::filesystem::symlink_status(path, error).permissions();
        const bool posix = std::filesystem::path::preferred_separator == '/';
        return posix ? static_cast<unsigned>(mode & std::filesystem::perms::mask) : 0;
    }
    /// Folders that a test made unreadable are opened first.
    static void RemoveTree(const std::filesystem::path& path) {
        namespace fs = std::filesystem;
        std::error_code error;
        if (fs::is_directory(fs::symlink_status(path, error))) {
            fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, error);
            for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) {
                RemoveTree(entry.path());
            }
        }
        fs::remove(path, error);
    }

    std::filesystem::path m_root;
};
