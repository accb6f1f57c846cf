#include "platform/Toggle/Toggle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <string_view>

#include "test/support/TempDir.h"
#include "test/support/TraceCapture.h"

namespace {

class ToggleTest : public testing::Test {
protected:
    ToggleTest() {
        Toggle::forgetAll();
        Toggle::directoryIs(directory_.path());
    }
    ~ToggleTest() override { Toggle::forgetAll(); }

    std::string path() const { return (directory_.path() / "Gale.json").string(); }
    void write(std::string_view text) { std::ofstream{path()} << text; }
    static bool read(bool byDefault) {
        return Toggle::getToggleState("Gale.json", "GaleTarnServer", byDefault);
    }

private:
    TestSupport::TempDir directory_;
};

struct ToggleCase {
    std::string_view name;
    std::string_view text;
    bool byDefault;
    bool want;
    std::string_view trace;  // after "toggle file <path>: "; empty: none
};
constexpr ToggleCase kCases[] = {
    {"TrueIsOn", R"({"GaleTarnServer": true})", false, true, ""},
    {"FalseIsOff", R"({"GaleTarnServer": false})", true, false, ""},
    {"AMissingMemberIsOnByDefault", R"({"Other": false})", true, true, ""},
    {"AMissingMemberIsOffByDefault", R"({"Other": true})", false, false, ""},
    {"AStringIsNoState",
     R"({"GaleTarnServer": "false"})",
     true,
     true,
     "GaleTarnServer is not true or false, stays true"},
    {"ANumberIsNoState",
     R"({"GaleTarnServer": 1})",
     false,
     false,
     "GaleTarnServer is not true or false, stays false"},
    {"HalfAFileIsMalformed",
     R"({"GaleTarnServer": fal)",
     true,
     true,
     "not a JSON object, GaleTarnServer stays true: malformed in line 1"},
    {"ALineIsNamed",
     "{\n  \"Other\": true,\n  \"GaleTarnServer\" false\n}\n",
     true,
     true,
     "not a JSON object, GaleTarnServer stays true: malformed in line 3"},
    {"AnEmptyFileIsMalformed",
     "",
     false,
     false,
     "not a JSON object, GaleTarnServer stays false: malformed in line 1"},
    {"AnArrayIsMalformed", "[true]", true, true, "not a JSON object, GaleTarnServer stays true"},
    {"BrokenUtf8IsMalformed",
     "{\"GaleTarnServer\": false, \"\xff\xfe\": 1}",
     true,
     true,
     "not a JSON object, GaleTarnServer stays true: malformed in line 1"},
};

class ToggleState : public ToggleTest, public testing::WithParamInterface<ToggleCase> {};

TEST_P(ToggleState, Holds) {
    const ToggleCase& c = GetParam();
    write(c.text);
    const TestSupport::TraceCapture trace;
    EXPECT_EQ(read(c.byDefault), c.want);
    std::vector<std::string> want;
    if (!c.trace.empty()) { want.push_back("toggle file " + path() + ": " + std::string{c.trace}); }
    EXPECT_EQ(trace.texts("Toggle"), want);
    for (const Blink::Message& message : trace.messages()) { EXPECT_EQ(message.level, 5); }
}
INSTANTIATE_TEST_SUITE_P(, ToggleState, testing::ValuesIn(kCases), [](const auto& row) {
    return std::string{row.param.name};
});

TEST_F(ToggleTest, AMissingFileIsTheDefaultWithoutATrace) {
    const TestSupport::TraceCapture trace;
    EXPECT_TRUE(read(true));
    Toggle::forgetAll();
    EXPECT_FALSE(read(false));
    EXPECT_TRUE(trace.texts("Toggle").empty());
}

TEST_F(ToggleTest, EachIsReadOncePerProcess) {
    write(R"({"GaleTarnServer": false})");
    EXPECT_FALSE(read(true));
    write(R"({"GaleTarnServer": true})");
    EXPECT_FALSE(read(true));
    Toggle::forgetAll();
    EXPECT_TRUE(read(false));
}

TEST_F(ToggleTest, TheFirstDefaultIsRememberedToo) {
    EXPECT_TRUE(read(true));
    write(R"({"GaleTarnServer": false})");
    EXPECT_TRUE(read(false));
}

TEST_F(ToggleTest, TheSameNameInAnotherFileIsAnotherToggle) {
    write(R"({"GaleTarnServer": false})");
    EXPECT_FALSE(read(true));
    EXPECT_TRUE(Toggle::getToggleState("Other.json", "GaleTarnServer", true));
}

/// Asked twice, the default both times, and said once.
void expectOneTrace(bool (*read)(bool), const std::string& text) {
    const TestSupport::TraceCapture trace;
    EXPECT_TRUE(read(true));
    EXPECT_TRUE(read(true));
    EXPECT_EQ(trace.texts("Toggle"), std::vector{text});
}

TEST_F(ToggleTest, APipeInThePlaceOfTheFileIsTracedOnceAndDoesNotBlock) {
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    expectOneTrace(read, "toggle file " + path() + ": not a file of at most 1048576 bytes");
}

TEST_F(ToggleTest, ADirectoryInThePlaceOfTheFileIsTracedOnce) {
    std::filesystem::create_directory(path());
    expectOneTrace(read, "toggle file " + path() + ": not a file of at most 1048576 bytes");
}

TEST_F(ToggleTest, AHugeFileIsTracedOnceAndNotRead) {
    std::ofstream{path()}.close();
    std::filesystem::resize_file(path(), std::uintmax_t{1} << 40U);  // no memory could hold it
    expectOneTrace(read, "toggle file " + path() + ": not a file of at most 1048576 bytes");
}

TEST_F(ToggleTest, AFileThatCannotBeReadIsTracedOnce) {
    // Regular by its looks, and even root may not read it.
    std::filesystem::create_symlink("/proc/self/mem", path());
    expectOneTrace(read, "toggle file " + path() + ": cannot be read");
}

TEST_F(ToggleTest, NestingWithoutEndIsMalformed) {
    write(std::string(900'000, '['));
    const TestSupport::TraceCapture trace;
    EXPECT_FALSE(read(false));
    EXPECT_TRUE(trace.has("toggle file " + path() +
                          ": not a JSON object, GaleTarnServer stays false: malformed in line 1"));
}

}  // namespace
