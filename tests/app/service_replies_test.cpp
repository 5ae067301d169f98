// What each reply of the service means.
#include "app/VelPatchServiceReplies.h"

#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Show(const VelPatchPageText& text) {
    std::string shown = (text.isKey ? "" : "'") + Text(text.text);
    for (const CXString& argument : text.arguments) {
        shown += "(" + Text(argument) + ")";
    }
    return shown;
}

/// The message, or what goes into the settings.
std::string Show(const VelPatchStreamCheckOutcome& outcome) {
    VelPatchSettings settings;
    settings.username = "old";
    settings.streamId = "none";
    outcome.ApplyTo(settings);
    if (!outcome.GoesOn()) {
        EXPECT_EQ(Row(settings.username, settings.streamId), "old|none") << "nothing is written";
        return Show(outcome.message->text) + (outcome.message->hasParent ? "" : " no parent");
    }
    std::string shown = Row(settings.username, settings.password, settings.streamId,
                            settings.streamName, std::string());
    for (const auto& [id, name] : settings.streams) {
        shown += Text(id) + "=" + Text(name) + ";";
    }
    return shown;
}

/// Heading, message, whether Next is enabled, and the addresses of the settings.
std::string Show(const VelPatchStreamFileOutcome& outcome) {
    VelPatchSettings settings;
    settings.patchControlFile = "old c";
    settings.patchDataFile = "old d";
    outcome.ApplyTo(settings);
    return Row(outcome.heading ? Show(*outcome.heading) : std::string("-"),
               outcome.message ? Show(outcome.message->text) : std::string(),
               std::string(outcome.enablesNext ? "next" : ""), settings.patchControlFile,
               settings.patchDataFile);
}

TEST(ServiceReplies, StreamCheck) {
    const std::string two = "good 1\nstream \"b Beta\"\nstream \"a  Alpha one \"\n";
    const std::string streams = "a= Alpha one ;b=Beta;";
    const struct {
        std::string body;
        std::string shown;
        std::string defaultStream = "2"; ///< what a run without a window makes of it
        const char* remembered = "";
    } cases[] = {
        {two, "anna|pw|a| Alpha one |" + streams, "3"},
        {two + "default-stream b", "anna|pw|b|Beta|" + streams, "b"},
        {two + "default-stream b", "anna|pw|a| Alpha one |" + streams, "b", "a"},
        {two + "default-stream b", "anna|pw|b|Beta|" + streams, "b", "gone"},
        {two + "default-stream c", "anna|pw|a| Alpha one |" + streams, "c"},
        {"good 1\nstream \"42 Beta  Stream\"", "anna|pw|42|Beta  Stream|42=Beta  Stream;", "3"},
        {"good 1\nstream 42 Beta  Stream", "anna|pw|42|Beta  Stream|42=Beta  Stream;", "3"},
        {"good 1\nstream \"a A\"\nstream \"b B\"\nstream \"a C\"", "anna|pw|a|C|a=C;b=B;", "3"},
        {"good 1\nstream x\nstream\nstream { a b\n}", "anna|pw|||=;", "3"},
        {"good 1\nstream x\nstream \"b B\"\ndefault-stream b", "anna|pw|||=;b=B;", "b"},
        {"good 1\nstream \"\xC3\x84 high\"\nstream \"z low\"", "anna|pw|z|low|z=low;\xC3\x84=high;",
         "3"},
        {"stream \"late L\"\nx { stream \"deep D\"\n}\nerror \"\"\ngood 1",
         "anna|pw|late|L|late=L;", "3"},
        {"good 0\ngood 1\nerror bad\nerror \"\"\nstream \"a A\"", "anna|pw|a|A|a=A;", "3"},

        {"good 1", "$velpatch_account_uptodate no parent", "3"},
        {"good 1\nStream \"a A\"", "$velpatch_account_uptodate no parent", "3"},
        {"error login_details_not_received\n" + two, "$velpatch_account_missing"},
        {"error invalid-myrollstock-details\ngood 1", "$velpatch_account_incorrect", "3"},
        {"error no-patch-streams\ngood 1", "$velpatch_account_products", "3"},
        {"error no-products-owned", "$velpatch_account_products", "3"},
        {"error Odd words 12\ngood 1", "$velpatch_account_error(Odd words 12)"},
        {"error 12", "$velpatch_account_error(12)"},
        {"error \"\"\ngood 0\nstream \"a A\"", "$velpatch_account_malformed"},
        {"good 2\nstream \"a A\"", "$velpatch_account_malformed"},
        {"good 11111111111111", "$velpatch_account_malformed"},
        {"", "$velpatch_account_malformed"},
        {"stream \"a A\"\n}\ngood 1", "$velpatch_account_malformed"},
        {"<html>Not here</html>\n{good 1", "$velpatch_account_malformed"},
        {std::string("\0\x01\xFF good 1", 10), "$velpatch_account_malformed"},
    };
    for (const auto& one : cases) {
        const VelPatchServiceReply reply{kCXResultOK, CXString(one.body)};
        EXPECT_EQ(Show(OutcomeOf({"anna", "pw", reply}, one.remembered)), one.shown) << one.body;
        const VelPatchDefaultStream stream = DefaultStreamOf(reply);
        EXPECT_EQ(stream.streamId.IsEmpty() ? std::to_string(stream.exitCode)
                                            : Text(stream.streamId),
                  one.defaultStream)
            << one.body;
    }
    const VelPatchServiceReply failed{kCXResultNotFound, CXString(two)};
    EXPECT_EQ(Show(OutcomeOf({"anna", "pw", failed}, "")), "$velpatch_account_failed");
    EXPECT_EQ(DefaultStreamOf(failed).exitCode, kCheckFailed);
}

TEST(ServiceReplies, StreamFile) {
    const struct {
        std::string body;
        const char* shown;
        int exitCode;
    } cases[] = {
        {"good 1\npatch-control-file https://h/c\npatch-data-file https://h/d\n"
         "description {{{Two\nlines}}}",
         "'Two\nlines||next|https://h/c|https://h/d", 1},
        {"good 1\ndescription $velpatch_check_back", "'$velpatch_check_back||next||", 1},
        {"good 1", "'||next||", 1},
        {"error no-patches-available\ngood 1\npatch-control-file x",
         "$velpatch_check_no_patch|||old c|old d", 0},
        {"error no-patch-streams\ngood 1", "-|$velpatch_check_error(no-patch-streams)||old c|old d",
         2},
        {"error \"\"\ngood 0\npatch-control-file x", "-|$velpatch_check_malformed||old c|old d", 2},
        {"not a reply", "-|$velpatch_check_malformed||old c|old d", 2},
    };
    VelPatchStreamFileCompletion completion;
    for (const auto& one : cases) {
        completion.reply = {kCXResultOK, CXString(one.body)};
        EXPECT_EQ(Show(OutcomeOf(completion, "offline")), one.shown) << one.body;
        EXPECT_EQ(CheckResultOf(completion.reply), one.exitCode) << one.body;
    }
    completion.reply.result = kCXResultTimedOut;
    EXPECT_EQ(CheckResultOf(completion.reply), 2);
    EXPECT_EQ(Show(OutcomeOf(completion, "offline")),
              "-|'Failed to access patch server. Please check your internet connection or try "
              "again later.||old c|old d");

    using Kind = VelPatchStreamFileCompletion::Kind;
    completion = {Kind::InvalidTarget, "/game/game.bin", kCXResultNotFound, {}};
    EXPECT_EQ(Show(OutcomeOf(completion, "offline")),
              "$velpatch_check_invalid_target_3|$velpatch_check_invalid_target_1(/game/"
              "game.bin)(-7)||old c|old d");
    completion.kind = Kind::WrongBuild;
    EXPECT_EQ(Show(OutcomeOf(completion, "offline")),
              "$velpatch_check_invalid_target_3|$velpatch_check_invalid_target_2||old c|old d");
    completion.kind = Kind::OfflineReady;
    EXPECT_EQ(Show(OutcomeOf(completion, "offline")), "'offline||next|old c|old d");
}

} // namespace
