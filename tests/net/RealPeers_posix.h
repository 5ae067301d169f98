// Real servers on loopback ports that are chosen when they start.
#pragma once

#include "tests/support/TempFolder.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// A program that serves until the object goes.
class PeerProcess {
public:
    PeerProcess() = default;
    ~PeerProcess() { Stop(); }
    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    /// Starts `arguments[0]`, found along the PATH, with its output in `logFile`, and waits until
    /// `port` takes connections. False if it ends before, as when another process took the port.
    bool Start(const std::vector<std::string>& arguments, int port, const std::string& logFile);
    /// Kills it at once.
    void Stop();

    /// A port that was free just now.
    static int FreePort();
    /// Runs a program to its end; false for an exit code but 0.
    static bool Run(const std::vector<std::string>& arguments);

private:
    pid_t m_pid = -1;
};

/// nginx with http and https, a plain proxy to itself, and a tinyproxy for tunnels. Files are in
/// `Folder()` + "/www".
class WebPeers {
public:
    /// False, with the reason in `problem`, if the servers don't come up.
    bool Start();
    void StopServer() { m_nginx.Stop(); }

    std::string Folder() const { return std::string(m_folder.Path().View()); }
    std::string Http(const std::string& path) const;
    std::string Https(const std::string& path) const;
    /// The root that signed the server's certificate, which names "localhost".
    std::string TrustFile() const { return Folder() + "/root.crt"; }
    int PlainProxyPort() const { return m_plainProxyPort; }
    int TunnelProxyPort() const { return m_tunnelProxyPort; }

    std::string problem;

private:
    bool MakeCertificates();
    bool StartNginx();
    bool StartTinyproxy();
    void Write(const std::string& name, const std::string& text) const;

    TempFolder m_folder;
    int m_httpPort = 0;
    int m_httpsPort = 0;
    int m_plainProxyPort = 0;
    int m_tunnelProxyPort = 0;
    PeerProcess m_nginx;
    PeerProcess m_tinyproxy;
};
