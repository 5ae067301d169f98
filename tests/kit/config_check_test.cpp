// check-config: the shipped data folder is sound, and each fault put into it is found in its line.
#include "app/config/VelPatchTextKeys.h"
#include "core/CXTime.h"
#include "kit/VelPatchConfigCheck.h"
#include "kit/VelPatchJson.h"
#include "tests/kit/HandMadePatch.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestCertificate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

constexpr int64_t kDay = 86400000;

class ConfigCheck : public testing::Test {
protected:
    ConfigCheck() {
        std::error_code error;
        for (const char* name : {"patch.bmp", "velpatch-background.bmp", "licence-en.rtf",
                                 "licence-de.rtf", "patch-config.txt"}) {
            std::filesystem::copy(std::string("data/") + name, m_folder.Path(name).GetData(),
                                  error);
        }
        m_config = m_folder.ReadFile("patch-config.txt");
        // An online copy, so that all is looked at.
        Replace("patch-control-file \"rowan-sails.control.txt\"", "");
        Replace("patch-data-file \"rowan-sails.data.bin\"", "");
        Replace("patch-anchor-checksum \"84f2bdcf4776e180b8b35c1764720c0a\"",
                "patch-service-base \"https://patches.example/\"");
        WriteRoots({{"CN:Root", -10, 1000, true}});
    }

    void Replace(const std::string& what, const std::string& by) {
        const size_t at = m_config.find(what);
        ASSERT_NE(at, std::string::npos) << what;
        m_config.replace(at, what.size(), by);
    }
    void WriteRoots(const std::vector<CertificateFields>& roots) const {
        std::string text;
        for (const CertificateFields& fields : roots) {
            text += TestCertificate(fields).GetPem();
        }
        m_folder.WriteFile("openssl.crt", text);
    }
    /// "error 12 key text" a line.
    std::string Check(const std::string& config, int64_t now = CXTime::GetCurrentTime()) const {
        m_folder.WriteFile("patch-config.txt", config);
        VelPatchConfigCheck check(m_folder.Path(), now);
        check.Run();
        std::string text;
        size_t errors = 0;
        for (const VelPatchConfigFinding& finding : check.GetFindings()) {
            errors += finding.isError ? 1 : 0;
            text += CXString::Format("%s %d %s %s\n", finding.isError ? "error" : "warning",
                                     finding.line, finding.key.GetData(), finding.text.GetData())
                        .GetData();
        }
        EXPECT_EQ(check.CountErrors(), errors);
        return text;
    }
    size_t LineOf(const std::string& config, const std::string& text) const {
        const size_t at = config.find(text);
        EXPECT_NE(at, std::string::npos) << text;
        return 1 + static_cast<size_t>(std::count(
                       config.begin(), config.begin() + static_cast<ptrdiff_t>(at), '\n'));
    }

    LogCapture m_log;
    TempFolder m_folder;
    std::string m_config;
};

TEST(TextKeys, AreUniqueAndTellTheirArguments) {
    std::set<std::string> seen;
    for (const VelPatchTextKey& entry : GetTextKeys()) {
        EXPECT_TRUE(seen.insert(entry.key).second) << entry.key;
        EXPECT_EQ(FindTextKey(entry.key), &entry);
    }
    const VelPatchTextKey* mismatch = FindTextKey("$velpatch_task_checksum_mismatch");
    ASSERT_NE(mismatch, nullptr);
    EXPECT_EQ(mismatch->CountArguments(), 3);
    EXPECT_EQ(mismatch->GetArgument(2), "expected checksum");
    EXPECT_EQ(FindTextKey("$velpatch_back")->CountArguments(), 0);
    EXPECT_EQ(FindTextKey("$velpatch_"), nullptr);
}

TEST_F(ConfigCheck, ShippedFolderIsSound) {
    VelPatchConfigCheck shipped("data", CXTime::GetCurrentTime());
    shipped.Run();
    for (const VelPatchConfigFinding& finding : shipped.GetFindings()) {
        EXPECT_FALSE(finding.isError)
            << finding.line << " " << finding.key.GetData() << " " << finding.text.GetData();
    }
    EXPECT_EQ(Check(m_config), "") << "an online copy of it has no fault at all";
}

TEST_F(ConfigCheck, FaultsAndTheirLines) {
    const std::string de = "locales/de-DE/";
    const struct {
        const char* what;
        const char* by;
        const char* line; ///< text in the line that is named; "": `by`; "-": none; "*": any
        std::string finding;
    } cases[] = {
        {"product-name", "produkt-name", "", "warning produkt-name is not a key"},
        {"product-name \"Rowan Sails: Northern Estuary\"", "", "-", "warning product-name is mis"},
        {"installation-folder-name \"Rowan Sails\"", "installation-folder-name \"Rowan: Sails\"",
         "", "error installation-folder-name can't be the name"},
        {"\"Rowan Sails\"", "\"Rowan Sails.\"", "", "error installation-folder-name can't be"},
        {"\"works.mostrel.rowan-sails\"", "\"works/mostrel\"", "application-bundle-id",
         "error application-bundle-id must be"},
        {"is-installation false", "is-installation 1", "",
         "error patch-is-installation is neither"},
        {"\"RSNE.exe\"", "\"bin\\RSNE.exe\"", "", "error patch-anchor-file could match no"},
        {"\"RSNE.exe\"", "\"./RSNE.exe\"", "", "error patch-anchor-file could match no"},
        {"\"RSNE.exe\"", "\"bin./RSNE.exe\"", "", "error patch-anchor-file could match no"},
        {"\"RSNE.exe\"", "\"../RSNE.exe\"", "", "error patch-anchor-file could match no"},
        {"\"RSNE.exe\"", "\"C:/RSNE.exe\"", "", "error patch-anchor-file could match no"},
        {"patch-anchor-file \"RSNE.exe\"", "", "-", "error patch-anchor-file is missing"},
        {"https://patches", "http://patches", "", "error patch-service-base is no https"},
        {"patch-service-base \"https://patches.example/\"", "", "-",
         "warning patch-service-base is"},
        {"shortcut-filename \"Rowan Sails.lnk\"", "shortcut-filename \"a/b\"", "",
         "error shortcut-filename can't"},
        {"root HKLM", "root HKLN", "", "error registry-edits/0/root names no hive"},
        {"type DWORD", "type QWORD", "", "error registry-edits/6/type is none of"},
        {"name EstimatedSize", "nome EstimatedSize", "", "warning registry-edits/6/nome is not"},
        {"locales\n{", "locales none\nothers\n{", "locales none",
         "error locales should be a block in braces"},
        {"de-DE\n    {", "de_DE\n    {", "", "error locales/de_DE is looked up as \"de-DE\""},
        {"\"$velpatch_back\" \"Zur", "\"$velpatch_bak\" \"Zur", "    de-DE",
         "error " + de + "$velpatch_back is missing"},
        {"\"$velpatch_back\" \"Zur", "\"$velpatch_bak\" \"Zur", "",
         "warning " + de + "$velpatch_bak is no text"},
        {"\"$velpatch_back\" \"Zur", "$velpatch_back \"Zur", "    de-DE",
         "error " + de + "$velpatch_back is missing"},
        {"$1 jetzt starten", "$2 jetzt starten", "",
         "error " + de + "$velpatch_launch_now uses $2"},
        {"$1 jetzt starten", "$1$10 jetzt", "", "error " + de + "$velpatch_launch_now uses $10"},
        {"$1 jetzt starten", "jetzt starten", "",
         "warning " + de + "$velpatch_launch_now doesn't use $1 (installation folder's name)"},
        {"\"Beenden\"", "\"\"", "\"$velpatch_exit\" \"\"",
         "warning " + de + "$velpatch_exit is empty"},
        {"\"Beenden\"", "\"Beenden \xFF\"", "", "error " + de + "$velpatch_exit is not in UTF-8"},
        {"\"licence-de.rtf\"", "\"lizenz.rtf\"", "", "warning " + de + "$velpatch_eula_filename '"},
        {"\"Beenden\"", "\"$(fort)\"", "", "warning " + de + "$velpatch_exit refers to $(fort)"},
        {"\"Beenden\"", "\"$($velpatch_back) $($velpatch_exit)\"", "",
         "error " + de + "$velpatch_exit refers to itself"},
        {"\"Beenden\"", "\"$(a)\"\n\"$(a)\" \"$(b,x)\"\n\"$(b)\" \"und $(a)\"", "\"$(a)\" \"",
         "error " + de + "$(a) refers to itself"},
        {"\"Beenden\"", "\"Beenden\"\n\"$velpatch_exit\" \"Ende\"", "\"$velpatch_exit\" \"Ende\"",
         "warning $velpatch_exit stands in line"},
        {"\"Beenden\"", "\"Beenden", "", "warning " + de + "$velpatch_exit ends with a line end"},
        {"gebracht werden.\"\n    }", "gebracht werden.", "",
         "error \" begins a text that never ends"},
        {"de-DE\n    {", "}\nde-DE\n    {", "*", " } closes nothing"},
        {"    en-US\n    {", "en-US\n{\nextra\n{", "*", " { is never closed"},
    };
    for (const auto& one : cases) {
        std::string config = m_config;
        const size_t at = config.find(one.what);
        ASSERT_NE(at, std::string::npos) << one.what;
        config.replace(at, std::string(one.what).size(), one.by);
        const std::string findings = Check(config);
        const std::string wanted = one.line;
        if (wanted == "*") {
            EXPECT_NE(findings.find(one.finding), std::string::npos) << findings;
            continue;
        }
        const size_t line = wanted == "-" ? 0 : LineOf(config, wanted.empty() ? one.by : wanted);
        const size_t space = one.finding.find(' ');
        const std::string expected =
            one.finding.substr(0, space) + " " + std::to_string(line) + one.finding.substr(space);
        EXPECT_NE(findings.find(expected), std::string::npos)
            << one.by << ": wanted " << expected << "\n"
            << findings;
    }
}

TEST_F(ConfigCheck, FilesOfAnOfflineCopy) {
    Replace("patch-is-installation false", "patch-is-installation false\n"
                                           "patch-control-file control.txt\n"
                                           "patch-data-file data.bin\n");
    EXPECT_NE(Check(m_config).find("patch-anchor-checksum is missing"), std::string::npos);
    Replace("patch-data-file data.bin\n",
            "patch-data-file data.bin\npatch-anchor-checksum " + HashOf("") + "\n");
    m_folder.Remove("openssl.crt"); // nobody is asked
    EXPECT_EQ(Check(m_config).find("error"), std::string::npos) << Check(m_config);
    HandMadePatch patch;
    patch.Create("a", "b").Write(m_folder);
    EXPECT_EQ(Check(m_config), "");
    m_folder.WriteFile("data.bin", "short");
    EXPECT_NE(Check(m_config).find("patch-data-file has 5 bytes"), std::string::npos);
    m_folder.WriteFile("control.txt", "velpatch-version 3");
    EXPECT_NE(Check(m_config).find("patch-control-file is no control file that can be used"),
              std::string::npos);

    // An installation shows its licence.
    Replace("patch-is-installation false", "patch-is-installation true");
    m_folder.Remove("licence-en.rtf");
    m_folder.WriteFile("patch.bmp", "GIF89a");
    m_folder.Remove("velpatch-background.bmp");
    const std::string findings = Check(m_config);
    for (const char* part : {"locales/en-US/$velpatch_eula_filename '", "error 0 patch.bmp is no",
                             "warning 0 velpatch-background.bmp is missing"}) {
        EXPECT_NE(findings.find(part), std::string::npos) << findings;
    }
}

TEST_F(ConfigCheck, TrustFile) {
    const int64_t now = CXTime::GetCurrentTime();
    EXPECT_EQ(Check(m_config, now + 900 * kDay), "");
    EXPECT_NE(Check(m_config, now + 950 * kDay).find("expires in"), std::string::npos);
    EXPECT_NE(Check(m_config, now + 1001 * kDay).find("error 0 openssl.crt holds no certificate"),
              std::string::npos);
    WriteRoots({{"CN:Old", -10, -1, true}, {"CN:Next", 5, 1000, true}, {"CN:Now", -1, 500, true}});
    const std::string findings = Check(m_config);
    EXPECT_NE(findings.find("CN=Old' has expired"), std::string::npos) << findings;
    EXPECT_NE(findings.find("CN=Next' isn't valid yet"), std::string::npos) << findings;
    EXPECT_EQ(findings.find("error"), std::string::npos) << findings;
    std::string damaged = m_folder.ReadFile("openssl.crt");
    damaged[damaged.rfind("MII") + 40] = '*';
    for (const std::string& text : {std::string("no certificate"), std::string(), damaged}) {
        m_folder.WriteFile("openssl.crt", text);
        EXPECT_NE(Check(m_config).find("error 0 openssl.crt doesn't load"), std::string::npos);
    }
    m_folder.Remove("openssl.crt");
    EXPECT_NE(Check(m_config).find("error 0 openssl.crt is missing"), std::string::npos);
}

TEST_F(ConfigCheck, NothingToRead) {
    EXPECT_EQ(Check("").rfind("error 0 patch-config.txt holds nothing", 0), 0u);
    EXPECT_EQ(Check("\xFF\xFEp"), "error 1 patch-config.txt is in UTF-16; it must be in UTF-8\n");
    EXPECT_EQ(Check("\xEF\xBB\xBF" + m_config).rfind("warning 1 patch-config.txt begins with", 0),
              0u);
    m_folder.Remove("patch-config.txt");
    VelPatchConfigCheck check(m_folder.Path(), 0);
    check.Run();
    EXPECT_EQ(check.CountErrors(), 1u);
}

TEST(Json, QuotesWhatItMust) {
    VelPatchJson json;
    json.PutText("text", "a\"\\\n\x01 \xC3\xBC \xFF");
    json.OpenList("list");
    json.PutNumber(nullptr, uint64_t{18446744073709551615U});
    json.OpenObject();
    json.CloseObject();
    json.CloseList();
    EXPECT_STREQ(json.Finish().GetData(),
                 "{\n  \"text\": \"a\\\"\\\\\\u000a\\u0001 \xC3\xBC \xEF\xBF\xBD\",\n"
                 "  \"list\": [\n    18446744073709551615,\n    {}\n  ]\n}\n");
}

} // namespace
