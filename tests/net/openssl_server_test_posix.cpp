// TLS streams against OpenSSL's own server program.

#include "net/CXStreamSSL.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestCertificate.h"
#include "tests/support/TrustFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

TEST(OpenSSLServer, ServesVersionsAndCertificates) {
    const TestCertificate root({.names = "CN:Test root", .isAuthority = true});
    const TestCertificate good({"DNS:server.example"}, &root);
    const TestCertificate other({"CN:server.example,DNS:b.example"}, &root);
    const TestCertificate old({"CN:server.example", -9, -2}, &root);
    TempFolder folder;
    folder.WriteFile("good", good.GetPem() + good.GetKeyPem());
    folder.WriteFile("other", other.GetPem() + other.GetKeyPem());
    folder.WriteFile("old", old.GetPem() + old.GetKeyPem());
    const struct {
        const char* options;
        bool open;
        CXResult result;
    } cases[] = {
        {"-cert good", true, kCXResultOK},
        {"-cert good -tls1_2 -verify 1 -max_send_frag 512", true, kCXResultOK},
        {"-cert good -tls1_1 -cipher ALL:@SECLEVEL=0", false, kCXResultAccessDenied},
        {"-cert old -servername server.example -cert2 good", true, kCXResultOK},
        {"-cert other", false, kCXResultOK},
        {"-cert old", false, kCXResultAccessDenied},
    };
    const TrustFolder trust(root.GetPem());
    CXSSLContext context;
    ASSERT_EQ(context.LoadDefaultVerifyPaths(), kCXResultOK);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        // Serves one connection on a port of its own choice, and sends each line back reversed.
        const std::string command = "cd '" + std::string(folder.Path().View()) +
                                    "' && exec openssl s_server -accept 127.0.0.1:0 -naccept 1 "
                                    "-rev " +
                                    c.options + " 2>/dev/null";
        FILE* program = ::popen(command.c_str(), "r");
        char line[200] = {};
        int port = 0;
        while (port == 0 && std::fgets(line, sizeof(line), program) != nullptr) {
            const std::string text(line);
            port = text.rfind("ACCEPT ", 0) == 0 ? std::atoi(line + text.rfind(':') + 1) : 0;
        }
        EXPECT_NE(port, 0) << "openssl s_server did not start";
        CXStreamTCP tcp;
        tcp.Open(CXSocketAddress::Loopback(static_cast<uint16_t>(port)), 10000);
        {
            const LogCapture log;
            CXStreamSSL ssl;
            ssl.SetHostName("server.example");
            ssl.Open(&context, &tcp);
            EXPECT_EQ(ssl.IsOpen(), c.open);
            EXPECT_EQ(ssl.GetLastError(), c.result);
            if (c.open) {
                std::string text;
                for (int i = 0; i < 500; ++i) {
                    text += std::to_string(i);
                }
                ssl.Write((text + "\n").data(), text.size() + 1);
                std::string back(text.size() + 1, '\0');
                EXPECT_EQ(ssl.Read(back.data(), back.size()), back.size());
                std::reverse(text.begin(), text.end());
                EXPECT_TRUE(back == text + "\n");
            }
        }
        tcp.Close();
        ::pclose(program);
    }
}

} // namespace
