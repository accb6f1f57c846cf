#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "apps/tree/Completion.h"
#include "apps/tree/ManualPage.h"
#include "test/support/TempDir.h"

namespace Pel::CommandTree {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using Words = std::vector<std::string>;

/// What the command prints, standard error included.
std::string output(const std::string& command) {
    FILE* const pipe = ::popen((command + " 2>&1").c_str(), "r");
    std::string text;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) { text += static_cast<char>(c); }
    EXPECT_EQ(::pclose(pipe), 0) << command << "\n" << text;
    return text;
}

Words wordsOf(const std::string& text) {
    std::istringstream in{text};
    return {std::istream_iterator<std::string>{in}, {}};
}

/// What bash offers for the last of the words. They are as bash has them: "=" is one.
Words completed(const Words& words, const std::filesystem::path& in = "/") {
    const TestSupport::TempDir directory;
    const auto script = directory.path() / "ask";
    std::ofstream file{script};
    file << "source <('" PEL_TEST_PROGRAM "' completion bash)\ncd '" << in.string()
         << "'\nCOMP_WORDS=(pel";
    for (const std::string& word : words) { file << " '" << word << "'"; }
    file << ")\nCOMP_CWORD=" << words.size() << "\n_pel\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
    file.close();
    return wordsOf(output("bash -u '" + script.string() + "'"));
}

/// The subcommands that the help of a command names.
Words helped(const std::string& command) {
    std::istringstream help{output(PEL_TEST_PROGRAM " " + command + " --help")};
    Words names;
    bool list = false;
    for (std::string line; std::getline(help, line);) {
        if (line == "Subcommands:") {
            list = true;
        } else if (line.empty()) {
            list = false;
        } else if (list && line.starts_with("  ") && line[2] != ' ') {
            names.push_back(wordsOf(line).front());
        }
    }
    return names;
}

TEST(BashCompletion, OffersTheSubcommandsThatHelpNames) {
    for (const std::string command : {"", "show", "config", "scenario", "trace"}) {
        Words words = wordsOf(command);
        words.emplace_back();
        const Words want = helped(command);
        EXPECT_FALSE(want.empty()) << command;
        EXPECT_THAT(completed(words), IsSupersetOf(want)) << command;
    }
    EXPECT_THAT(completed({"show", "fe"}), ElementsAre("fec-export"));
}

TEST(BashCompletion, OffersOptionsAfterADash) {
    EXPECT_THAT(completed({"show", "fec-export", "--"}),
                ElementsAre("--help", "--root", "--timeout", "--json"));
    EXPECT_THAT(completed({"watch", "--on"}), ElementsAre("--once"));
    EXPECT_THAT(completed({"watch", "--rates", "--on"}), ElementsAre("--once"));
    EXPECT_THAT(completed({"show", "--manual"}), ElementsAre());
}

TEST(BashCompletion, OffersTheChoicesOfEachPositional) {
    EXPECT_THAT(completed({"config", "set", ""}), ElementsAre("aftExportEnabled"));
    EXPECT_THAT(completed({"config", "set", "aftExportEnabled", ""}), ElementsAre("true", "false"));
    EXPECT_THAT(completed({"config", "set", "--root", "/x", "aftExportEnabled", "t"}),
                ElementsAre("true"));
    EXPECT_THAT(completed({"config", "set", "--root", "=", "/x", "aftExportEnabled", "t"}),
                ElementsAre("true"));
    EXPECT_THAT(completed({"completion", ""}), ElementsAre("bash"));
}

TEST(BashCompletion, OffersFilesAndDirectoriesWhereTheyBelong) {
    const TestSupport::TempDir directory;
    std::filesystem::create_directory(directory.path() / "folder");
    std::ofstream{directory.path() / "a file.yaml"} << "scenario: 1\n";
    EXPECT_THAT(completed({"scenario", "check", ""}, directory.path()),
                testing::UnorderedElementsAre("folder", "a", "file.yaml"));
    EXPECT_THAT(completed({"scenario", "check", "one", "a"}, directory.path()),
                ElementsAre("a", "file.yaml"));
    EXPECT_THAT(completed({"show", "status", "--root", ""}, directory.path()),
                ElementsAre("folder"));
    EXPECT_THAT(completed({"show", "status", "--root", "="}, directory.path()),
                ElementsAre("folder"));
    EXPECT_THAT(completed({"show", "status", "--root", "=", "f"}, directory.path()),
                ElementsAre("folder"));
    EXPECT_THAT(completed({"show", "status", "--timeout", ""}, directory.path()), ElementsAre());
}

class ManualPages : public testing::TestWithParam<const char*> {
protected:
    static std::string file() { return std::string{PEL_TEST_MANUAL "/"} + GetParam(); }
};
TEST_P(ManualPages, RenderWithoutWarnings) {
    EXPECT_EQ(output("groff -man -ww -Tutf8 -z '" + file() + "'"), "");
    const std::string page = output("groff -man -Tascii -P-bcou -rLL=400n '" + file() + "'");
    EXPECT_THAT(page, HasSubstr("EXIT STATUS"));
    EXPECT_THAT(page, HasSubstr("--root DIR"));
    EXPECT_THAT(page, Not(HasSubstr("@")));
}
INSTANTIATE_TEST_SUITE_P(,
                         ManualPages,
                         testing::Values("pel.1", "pel-agentd.8", "pel-forwarderd.8"),
                         [](const auto& row) {
                             std::string name = row.param;
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return c < '0'; }, '_');
                             return name;
                         });

TEST(ManualPage, NamesEachSubcommandAndOption) {
    const std::string page =
        output("groff -man -Tascii -P-bcou -rLL=400n " PEL_TEST_MANUAL "/pel.1");
    for (const std::string& name : helped("show")) {
        EXPECT_THAT(page, HasSubstr("pel show " + name));
    }
    EXPECT_THAT(page, HasSubstr("pel config set NAME VALUE"));
    EXPECT_THAT(page, HasSubstr("pel scenario check FILES..."));
    EXPECT_THAT(page, HasSubstr("pel watch [PATHS...]"));
    EXPECT_THAT(page, HasSubstr("--rates[=N]"));
    EXPECT_THAT(page, HasSubstr("VALUE (true|false)"));
    EXPECT_THAT(page, HasSubstr("1 to 86400. Default: 660."));
    EXPECT_THAT(page, Not(HasSubstr("manual-section")));
}

TEST(ManualPage, ATextIsNoRequestAndNoEscape) {
    EXPECT_EQ(roff(".TH \\fB-x"), "\\&.TH \\efB\\-x");
    EXPECT_EQ(roff("'it'"), "\\&\\(aqit\\(aq");
}

TEST(CommandTreeOf, SaysWhatWasDeclared) {
    CLI::App app{"Does it", "it"};
    int number = 5;
    std::string text;
    bool flag = false;
    std::string rate;
    app.add_option("-n,--number", number, "How many")
        ->check(CLI::Range(1, 9))
        ->capture_default_str();
    app.add_flag("--flag", flag, "Whether");
    app.add_flag("--rate{7}", rate, "How fast");
    app.add_flag("--hidden", flag, "Nobody")->group("");
    app.add_option("what", text, "Of it")->required()->check(CLI::IsMember({"a", "b"}));
    app.add_subcommand("below", "More")->add_subcommand("deeper", "Still");
    const Command command = of(app);
    EXPECT_EQ(command.name, "it");
    ASSERT_EQ(command.options.size(), 4U);  // with help
    EXPECT_THAT(command.options[1].names, ElementsAre("-n", "--number"));
    EXPECT_TRUE(command.options[1].takesValue);
    EXPECT_EQ(command.options[1].type, "INT");
    EXPECT_EQ(command.options[1].bounds, "1 to 9");
    EXPECT_EQ(command.options[1].byDefault, "5");
    EXPECT_FALSE(command.options[2].takesValue);
    EXPECT_FALSE(command.options[3].takesValue);
    EXPECT_EQ(command.options[3].whenBare, "7");
    ASSERT_EQ(command.positionals.size(), 1U);
    EXPECT_TRUE(command.positionals[0].required);
    EXPECT_THAT(command.positionals[0].choices, ElementsAre("a", "b"));
    ASSERT_EQ(command.subcommands.size(), 1U);
    EXPECT_EQ(command.subcommands[0].subcommands[0].name, "deeper");
}

}  // namespace
}  // namespace Pel::CommandTree
