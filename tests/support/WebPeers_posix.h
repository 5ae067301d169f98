// Real servers for tests, from tests/net/peers.py.
#pragma once

#include "core/CXTime.h"
#include "tests/support/TempFolder.h"

#include <cstdio>
#include <string>

/// nginx with http and https, a plain proxy to itself, and a tinyproxy for tunnels; they stop with
/// the object.
class WebPeers {
public:
    WebPeers() {
        const std::string command = "exec python3 tests/net/peers.py '" + Folder() + "'";
        m_process = popen(command.c_str(), "we");
        std::ifstream file;
        for (int i = 0; i < 6000 && !file.is_open(); ++i) {
            CXSleep(10);
            file.open(Folder() + "/ports");
        }
        file >> httpPort >> httpsPort >> plainProxyPort >> tunnelProxyPort;
        isUp = static_cast<bool>(file);
    }
    ~WebPeers() { pclose(m_process); }
    WebPeers(const WebPeers&) = delete;
    WebPeers& operator=(const WebPeers&) = delete;

    void KillServer() {
        std::fputs("\n", m_process);
        std::fflush(m_process);
        while (!std::filesystem::exists(Folder() + "/nginx-is-gone")) {
            CXSleep(1);
        }
    }
    void WriteFile(const std::string& name, const std::string& contents) const {
        std::ofstream(Folder() + "/www/" + name, std::ios::binary) << contents;
    }

    std::string Folder() const { return std::string(m_folder.Path().View()); }
    std::string Http(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(httpPort) + path;
    }
    std::string Https(const std::string& path) const {
        return "https://localhost:" + std::to_string(httpsPort) + path;
    }

    bool isUp = false;
    int httpPort = 0;
    int httpsPort = 0;
    int plainProxyPort = 0;
    int tunnelProxyPort = 0;

private:
    TempFolder m_folder;
    FILE* m_process;
};
