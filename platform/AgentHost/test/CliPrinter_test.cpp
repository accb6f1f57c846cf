#include "platform/AgentHost/CliPrinter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>

#include "platform/AgentHost/AgeText.h"

namespace AgentHost {
namespace {

using testing::HasSubstr;

struct Printed {
    OutputFormat format;
    std::string_view want;
};

/// One of each call, as a command makes them.
void printAll(CliPrinter& to) {
    constexpr std::array<std::uint32_t, 2> kNumbers{100, 200};
    to.openDict({}, "things");
    to.openDict("Thing: ", "7");
    to.number(", size: ", "size", 18446744073709551615U);
    to.number(", parts: ", {}, 2);
    to.endLine();
    to.openDict({}, "parts");
    to.openDict("\tPart: ", "1");
    to.string(" is ", "name", "a \"b\" \\ \t\x1b\n\xC3\xA9");
    to.numbers(" of ", "of", kNumbers);
    to.numbers(" and ", "and", {});
    to.endLine();
    to.closeDict();
    to.closeDict();
    to.closeDict();
    to.openDict("Thing: ", "8");
    to.boolean(" broken: ", "broken", true);
    to.boolean(" used: ", "used", false);
    to.string({}, "colour", "");
    to.endLine();
    to.closeDict();
    to.closeDict();
}

class CliPrinterForms : public testing::TestWithParam<Printed> {};
TEST_P(CliPrinterForms, ComeFromOneSetOfCalls) {
    CliPrinter printer{GetParam().format};
    printAll(printer);
    printer.end();
    EXPECT_EQ(printer.takeOutput(), GetParam().want);
    EXPECT_EQ(printer.error(), "");
}
INSTANTIATE_TEST_SUITE_P(
    ,
    CliPrinterForms,
    testing::Values(
        Printed{OutputFormat::text,
                "Thing: 7, size: 18446744073709551615, parts: 2\n"
                "\tPart: 1 is a \"b\" \\ \\x09\\x1b\\x0a\xC3\xA9 of 100 200 and None\n"
                "Thing: 8 broken: true used: false\n"},
        Printed{OutputFormat::json,
                R"({"things":{"7":{"size":18446744073709551615,"parts":{"1":{)"
                R"("name":"a \"b\" \\ \t\u001b\n)"
                "\xC3\xA9"
                R"(","of":[100,200],"and":[]}}},"8":{"broken":true,"used":false,"colour":""}}})"
                "\n"}),
    [](const auto& row) { return row.param.format == OutputFormat::text ? "Text" : "Structured"; });

TEST(CliPrinterTest, NothingPrintedIsAnEmptyDocument) {
    for (const auto& [format, want] :
         {std::pair{OutputFormat::text, ""}, std::pair{OutputFormat::json, "{}\n"}}) {
        CliPrinter printer{format};
        printer.end();
        EXPECT_EQ(printer.takeOutput(), want);
    }
}

TEST(CliPrinterTest, ADictionaryInsideOneOfItsOwnNameIsAnotherOne) {
    CliPrinter printer{OutputFormat::json};
    for (const char* const key : {"a", "a", "b", "a"}) { printer.openDict({}, key); }
    printer.end();
    EXPECT_EQ(printer.takeOutput(), "{\"a\":{\"a\":{\"b\":{\"a\":{}}}}}\n");
}

TEST(CliPrinterTest, AKeyOfAnyBytesDoesNoHarmAmongPeople) {
    CliPrinter printer{OutputFormat::text};
    printer.openDict("Name: ", "a\x1b[2J\"");
    printer.endLine();
    EXPECT_EQ(printer.takeOutput(), "Name: a\\x1b[2J\"\n");
}

TEST(CliPrinterTest, AnIndentMovesTheLinesThatBeginUnderItAndNoJson) {
    for (const auto& [format, want] :
         {std::pair{OutputFormat::text, "a 1 b 2\n\t\tc 3\n\t\t\td 4 e 5\nf 6\n"},
          std::pair{OutputFormat::json, R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6}
)"}}) {
        CliPrinter printer{format};
        printer.number("a ", "a", 1);
        printer.indentIs(2);
        printer.number(" b ", "b", 2);
        printer.endLine();
        printer.number("c ", "c", 3);
        printer.endLine();
        printer.number("\td ", "d", 4);
        printer.number(" e ", "e", 5);
        printer.endLine();
        printer.indentIs(0);
        printer.number("f ", "f", 6);
        printer.endLine();
        printer.end();
        EXPECT_EQ(printer.takeOutput(), want);
    }
}

TEST(CliPrinterTest, AnyBytesAreValidJson) {
    std::string every;
    for (int byte = 0; byte < 256; ++byte) { every += static_cast<char>(byte); }
    const std::string strings[] = {every, "\xC3", "\xF0\x9F\x98", "\xED\xA0\x80", "\"", "\\"};
    for (const std::string& text : strings) {
        CliPrinter printer{OutputFormat::json};
        printer.openDict({}, text);
        printer.string({}, text, text);
        printer.cmdErr(text);
        printer.end();
        const std::string output = printer.takeOutput();
        const auto json = nlohmann::json::parse(output, nullptr, false);
        ASSERT_TRUE(json.is_object()) << output;
        EXPECT_EQ(json.size(), 2U);
    }
    CliPrinter printer{OutputFormat::json};
    printer.string({}, "a", "x\xFFy");
    printer.end();
    EXPECT_EQ(printer.takeOutput(), "{\"a\":\"x\xEF\xBF\xBDy\"}\n");
}

TEST(CliPrinterTest, AnEndAnywhereIsValidJsonWithItsErrors) {
    CliPrinter printer{OutputFormat::json};
    printer.openDict({}, "a");
    printer.openDict({}, "b");
    printer.number({}, "c", 1);
    printer.cmdErr("% not \"here\"");
    printer.cmdErr("nor there");
    printer.end();
    EXPECT_EQ(printer.takeOutput(),
              "{\"a\":{\"b\":{\"c\":1}},\"errors\":[\"% not \\\"here\\\"\",\"nor there\"]}\n");
    EXPECT_EQ(printer.error(), "% not \"here\"\nnor there");
}

TEST(CliPrinterTest, AnErrorAloneIsADocumentAndNoText) {
    for (const auto& [format, want] : {std::pair{OutputFormat::text, ""},
                                       std::pair{OutputFormat::json, "{\"errors\":[\"no\"]}\n"}}) {
        CliPrinter printer{format};
        printer.cmdErr("no");
        printer.end();
        EXPECT_EQ(printer.takeOutput(), want);
        EXPECT_EQ(printer.error(), "no");
    }
}

TEST(CliPrinterTest, WhatIsTakenMakesRoom) {
    CliPrinter printer{OutputFormat::text};
    printer.string("x", "x", std::string(CliPrinter::kFull - 2, 'x'));
    EXPECT_FALSE(printer.full());
    printer.endLine();
    EXPECT_TRUE(printer.full());
    EXPECT_EQ(printer.takeOutput().size(), CliPrinter::kFull);
    EXPECT_EQ(printer.buffered(), 0U);
    EXPECT_FALSE(printer.full());
}

TEST(CliPrinterDeathTest, ClosingWhatIsNotOpenAndAKeyOfNothingAreBrokenPreconditions) {
    CliPrinter printer{OutputFormat::json};
    EXPECT_DEATH(printer.closeDict(), "open_");
    EXPECT_DEATH(printer.openDict("x", {}), "key");
}

/// A list of items, and what is wrong with one of them.
std::string listed(OutputFormat format, bool colours) {
    CliPrinter printer{format};
    printer.coloursAre(colours);
    printer.openList("Parts:\n", "parts");
    for (const std::string_view state : {"whole", "NOT whole\n"}) {
        printer.openItem();
        printer.string("  ", "name", "x");
        if (state == "whole") {
            printer.string(": ", "state", state);
        } else {
            printer.bad(": ", "state", state);
        }
        printer.bad({}, {}, "!");
        printer.text(" 100 %");
        printer.endLine();
        printer.closeDict();
    }
    printer.closeList();
    printer.andMore(7, 5);
    printer.andMore(5, 5);
    printer.number({}, "after", 1);
    printer.end();
    return printer.takeOutput();
}

TEST(CliPrinterTest, AListIsAnArrayOfItems) {
    EXPECT_EQ(
        listed(OutputFormat::json, false),
        R"({"parts":[{"name":"x","state":"whole"},{"name":"x","state":"NOT whole\n"}],"after":1})"
        "\n");
    EXPECT_EQ(listed(OutputFormat::text, false),
              "Parts:\n  x: whole! 100 %\n  x: NOT whole\\x0a! 100 %\n  and 2 more\n");
}

TEST(CliPrinterTest, WhatIsBadIsInColourOnlyWhereColoursAreWanted) {
    EXPECT_EQ(listed(OutputFormat::json, true), listed(OutputFormat::json, false));
    EXPECT_EQ(listed(OutputFormat::text, true),
              "Parts:\n  x: whole\x1b[31m!\x1b[0m 100 %\n"
              "  x: \x1b[31mNOT whole\\x0a\x1b[0m\x1b[31m!\x1b[0m 100 %\n  and 2 more\n");
}

TEST(CliPrinterTest, AnOpenListIsClosedAtTheEnd) {
    CliPrinter printer{OutputFormat::json};
    printer.openDict({}, "a");
    printer.openList({}, "a");
    printer.openItem();
    printer.end();
    EXPECT_EQ(printer.takeOutput(), "{\"a\":{\"a\":[{}]}}\n");
}

TEST(CliPrinterTest, TheTextFormCutsLongListsAndTheStructuredFormDoesNot) {
    const CliPrinter text{OutputFormat::text};
    const CliPrinter json{OutputFormat::json};
    EXPECT_EQ(text.shownOf(7, 5), 5U);
    EXPECT_EQ(text.shownOf(3, 5), 3U);
    EXPECT_EQ(json.shownOf(7, 5), 7U);
}

struct AgeCase {
    std::int64_t seconds;
    const char* want;
};
TEST(AgeTextTest, SaysTheTwoLargestUnits) {
    for (const auto& [seconds, want] : {AgeCase{-5, "0 s"},
                                        AgeCase{0, "0 s"},
                                        AgeCase{59, "59 s"},
                                        AgeCase{60, "1 min 0 s"},
                                        AgeCase{3599, "59 min 59 s"},
                                        AgeCase{3600, "1 h 0 min"},
                                        AgeCase{86'399, "23 h 59 min"},
                                        AgeCase{90'000, "1 d 1 h"}}) {
        EXPECT_EQ(ageText(std::chrono::seconds{seconds} + std::chrono::milliseconds{0}), want);
    }
    EXPECT_EQ(ageText(std::chrono::milliseconds{1999}), "1 s");
    EXPECT_EQ(ageSeconds(std::chrono::milliseconds{-1}), 0U);
}

}  // namespace
}  // namespace AgentHost
