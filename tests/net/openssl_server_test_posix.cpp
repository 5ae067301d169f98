// TLS streams against OpenSSL's own server program.

#include "net/CXSSLContext.h"
#include "net/CXStreamSSL.h"
#include "tests/net/TestCertificate.h"
#include "tests/net/TrustFolder.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint32_t kPatienceMs = 10000;
const char* const kHost = "server.example";

/// Runs "openssl s_server" on a free port of its own choice; it sends each line back reversed.
class OpenSSLServer {
public:
    OpenSSLServer(const TestCertificate& certificate, const std::vector<std::string>& options) {
        m_folder.WriteFile("cert.pem", certificate.GetCertificatePem());
        m_folder.WriteFile("key.pem", certificate.GetKeyPem());
        const std::string folder(m_folder.Path().View());
        std::vector<std::string> words = {
            "openssl", "s_server",          "-accept", "127.0.0.1:0", "-cert", folder + "/cert.pem",
            "-key",    folder + "/key.pem", "-rev"};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        int output[2];
        EXPECT_EQ(::pipe2(output, O_CLOEXEC), 0);
        m_child = ::fork();
        if (m_child == 0) {
            ::dup2(output[1], STDOUT_FILENO);
            ::close(STDERR_FILENO);
            ::execvp("openssl", arguments.data());
            ::_exit(127);
        }
        ::close(output[1]);
        m_output = output[0];
        ReadPort();
    }
    ~OpenSSLServer() {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
        ::close(m_output);
    }
    OpenSSLServer(const OpenSSLServer&) = delete;
    OpenSSLServer& operator=(const OpenSSLServer&) = delete;

    CXSocketAddress GetAddress() const { return CXSocketAddress::Loopback(m_port); }

private:
    /// The program says "ACCEPT 127.0.0.1:port".
    void ReadPort() {
        std::string text;
        char byte = 0;
        while (::read(m_output, &byte, 1) == 1) {
            text += byte;
            const size_t at = text.find("ACCEPT ");
            const size_t colon = at == std::string::npos ? at : text.find(':', at);
            if (byte == '\n' && colon != std::string::npos) {
                m_port = static_cast<uint16_t>(std::atoi(text.c_str() + colon + 1));
                return;
            }
        }
        ADD_FAILURE() << "openssl s_server did not start: " << text;
    }

    TempFolder m_folder;
    pid_t m_child = -1;
    int m_output = -1;
    uint16_t m_port = 0;
};

TEST(OpenSSLServer, ServesCertificatesAndVersions) {
    const TestCertificate root({.commonNames = {"Test root"}, .isAuthority = true});
    const TestCertificate good({.alternativeNames = {"DNS:server.example"}}, &root);
    const TestCertificate other({.commonNames = {kHost}, .alternativeNames = {"DNS:b.example"}},
                                &root);
    const TestCertificate old({.commonNames = {kHost}, .validFromDays = -9, .validToDays = -2},
                              &root);
    const struct {
        const char* name;
        const TestCertificate& certificate;
        std::vector<std::string> options;
        bool open;
        CXResult result;
    } cases[] = {
        {"newest version", good, {}, true, kCXResultOK},
        {"TLS 1.2", good, {"-tls1_2"}, true, kCXResultOK},
        {"TLS 1.1", good, {"-tls1_1", "-cipher", "ALL:@SECLEVEL=0"}, false, kCXResultAccessDenied},
        {"a client certificate is wished for", good, {"-verify", "1"}, true, kCXResultOK},
        {"small records", good, {"-max_send_frag", "512"}, true, kCXResultOK},
        {"the name is known to the server",
         good,
         {"-servername", kHost, "-servername_fatal", "-cert2", "CERT", "-key2", "KEY"},
         true,
         kCXResultOK},
        {"another name", other, {}, false, kCXResultOK},
        {"expired", old, {}, false, kCXResultAccessDenied},
    };
    const TrustFolder trust(root.GetCertificatePem());
    CXSSLContext context;
    ASSERT_EQ(context.LoadDefaultVerifyPaths(), kCXResultOK);
    TempFolder second;
    second.WriteFile("cert", good.GetCertificatePem());
    second.WriteFile("key", good.GetKeyPem());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> options = c.options;
        for (std::string& option : options) {
            option = option == "CERT"  ? std::string(second.Path("cert").View())
                     : option == "KEY" ? std::string(second.Path("key").View())
                                       : option;
        }
        const OpenSSLServer server(c.certificate, options);
        const LogCapture log;
        CXStreamTCP tcp;
        tcp.Open(server.GetAddress(), kPatienceMs);
        CXStreamSSL ssl;
        ssl.SetHostName(kHost);
        ssl.Open(&context, &tcp);
        EXPECT_EQ(ssl.IsOpen(), c.open);
        EXPECT_EQ(ssl.GetLastError(), c.result);
        if (c.open) {
            std::string line(3001, 'a');
            line.back() = 'b';
            ssl.Write((line + "\n").data(), line.size() + 1);
            std::string back(line.size() + 1, '\0');
            EXPECT_EQ(ssl.Read(back.data(), back.size()), back.size());
            EXPECT_TRUE(back == "b" + std::string(3000, 'a') + "\n") << back.substr(0, 60);
        }
    }
}

} // namespace
