#include "tests/net/RealPeers_posix.h"

#include "core/CXTime.h"
#include "net/CXStreamTCP.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kStartAttempts = 5; // another process may take a port that was free
constexpr int kStartWaits = 1000; // of 10 ms

// Servers lie in folders that the PATH of an ordinary user lacks.
constexpr const char* kServerFolders = "/usr/sbin:/usr/local/sbin:/sbin";

pid_t Spawn(const std::vector<std::string>& arguments, const std::string& logFile) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    const char* path = std::getenv("PATH");
    const std::string search = std::string(path != nullptr ? path : "") + ":" + kServerFolders;
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    const int log = open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    setenv("PATH", search.c_str(), 1);
    execvp(pointers[0], pointers.data());
    _exit(127);
}

bool TakesConnections(int port) {
    CXStreamTCP probe;
    probe.Open(CXSocketAddress::Loopback(static_cast<uint16_t>(port)), 1000);
    return probe.IsOpen();
}

void Replace(std::string& text, const std::string& name, const std::string& value) {
    for (size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size()) {
        text.replace(at, name.size(), value);
    }
}

} // namespace

bool PeerProcess::Start(const std::vector<std::string>& arguments, int port,
                        const std::string& logFile) {
    m_pid = Spawn(arguments, logFile);
    for (int i = 0; m_pid > 0 && i < kStartWaits; ++i) {
        if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
            m_pid = -1;
            return false;
        }
        if (TakesConnections(port)) {
            return true;
        }
        CXSleep(10);
    }
    Stop();
    return false;
}

void PeerProcess::Stop() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

int PeerProcess::FreePort() {
    CXStreamTCP listener;
    listener.Listen(CXSocketAddress::Loopback(0));
    return listener.GetLocalAddress().GetPort();
}

bool PeerProcess::Run(const std::vector<std::string>& arguments) {
    const pid_t child = Spawn(arguments, "/dev/null");
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

bool WebPeers::Start() {
    std::filesystem::create_directories(Folder() + "/www");
    if (!MakeCertificates()) {
        problem = "openssl can't make certificates";
        return false;
    }
    for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
        if (StartNginx() && StartTinyproxy()) {
            return true;
        }
    }
    std::ifstream log(Folder() + "/peers.log");
    problem.assign(std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>());
    return false;
}

std::string WebPeers::Http(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(m_httpPort) + path;
}

std::string WebPeers::Https(const std::string& path) const {
    return "https://localhost:" + std::to_string(m_httpsPort) + path;
}

void WebPeers::Write(const std::string& name, const std::string& text) const {
    std::ofstream(Folder() + "/" + name, std::ios::binary) << text;
}

bool WebPeers::MakeCertificates() {
    const std::string base = Folder() + "/";
    Write("names.cnf", "subjectAltName=DNS:localhost\n");
    return PeerProcess::Run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                             "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj",
                             "/CN=Test root", "-keyout", base + "root.key", "-out",
                             base + "root.crt"}) &&
           PeerProcess::Run({"openssl", "req", "-newkey", "ec", "-pkeyopt",
                             "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=localhost",
                             "-keyout", base + "server.key", "-out", base + "server.csr"}) &&
           PeerProcess::Run({"openssl", "x509", "-req", "-in", base + "server.csr", "-CA",
                             base + "root.crt", "-CAkey", base + "root.key", "-CAcreateserial",
                             "-days", "2", "-extfile", base + "names.cnf", "-out",
                             base + "server.crt"});
}

bool WebPeers::StartNginx() {
    m_httpPort = PeerProcess::FreePort();
    m_httpsPort = PeerProcess::FreePort();
    m_plainProxyPort = PeerProcess::FreePort();
    std::ifstream file("tests/net/data/nginx.conf");
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    Replace(text, "@FOLDER@", Folder());
    Replace(text, "@HTTP@", std::to_string(m_httpPort));
    Replace(text, "@HTTPS@", std::to_string(m_httpsPort));
    Replace(text, "@PROXY@", std::to_string(m_plainProxyPort));
    Write("nginx.conf", text);
    return m_nginx.Start(
        {"nginx", "-c", Folder() + "/nginx.conf", "-p", Folder(), "-e", Folder() + "/peers.log"},
        m_httpPort, Folder() + "/peers.log");
}

bool WebPeers::StartTinyproxy() {
    m_tunnelProxyPort = PeerProcess::FreePort();
    Write("tinyproxy.conf", "Port " + std::to_string(m_tunnelProxyPort) +
                                "\nListen 127.0.0.1\nAllow 127.0.0.1\nTimeout 20\n"
                                "ConnectPort " +
                                std::to_string(m_httpsPort) + "\n");
    const bool isUp = m_tinyproxy.Start({"tinyproxy", "-d", "-c", Folder() + "/tinyproxy.conf"},
                                        m_tunnelProxyPort, Folder() + "/peers.log");
    if (!isUp) {
        m_nginx.Stop();
    }
    return isUp;
}
