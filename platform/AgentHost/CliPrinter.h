#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/AgentHost/CommandRequest.h"
#include "platform/Vel/Ref.h"

namespace AgentHost {

/// The text with control characters as \x1b: what somebody else has named must not move the cursor.
std::string printable(std::string_view text);

/// Renders a show command's output from one set of calls, as text or structured (one JSON object),
/// and holds it until somebody takes it. Each call has a label, for the text form, and a key, for
/// the structured form; a form whose part is empty shows nothing of the call.
///
///     call                                  text              structured
///     openDict("Id: ", "7")                 Id: 7             "7":{
///     number(", size: ", "size", 3)         , size: 3         "size":3
///     string(" name ", "name", "a\"b")       name a"b         "name":"a\"b"
///     numbers(" of: ", "of", {1, 2})         of: 1 2          "of":[1,2]
///     endLine()                             (line break)
///     closeDict()                                             }
///     openList("", "things")                                  "things":[
///     openItem()                                              {
///     text("a word")                        a word
///     bad(": ", "state", "NOT open")        : NOT open        "state":"NOT open"
///
/// bad() is a string that an operator should look at; the text form shows it in colour if the
/// client asked for that.
///
/// The structured form is compact: white space stands nowhere but in strings, and a line break ends
/// the document. It is valid JSON in UTF-8 whatever the strings hold and wherever the calls end:
/// end() closes what is open.
class CliPrinter final : public Vel::RefCounted {
public:
    explicit CliPrinter(OutputFormat format);
    OutputFormat format() const { return format_; }

    /// Opens a dictionary inside the innermost open one. A command that goes on in a later slice
    /// finds open what it left open.
    void openDict(std::string_view label, std::string_view key);
    /// Closes the innermost open one; at least one is open.
    void closeDict();
    /// Opens a list inside the innermost open dictionary; what is in it are items.
    void openList(std::string_view label, std::string_view key);
    void closeList() { closeDict(); }
    /// Opens a dictionary that is the innermost open list's next element; closeDict() closes it.
    void openItem();
    void number(std::string_view label, std::string_view key, std::uint64_t value);
    /// "true" or "false" in both forms.
    void boolean(std::string_view label, std::string_view key, bool value);
    /// In the text form control characters are shown as \x1b. In the structured form the value is
    /// quoted and escaped; bytes that are no UTF-8 become U+FFFD.
    void string(std::string_view label, std::string_view key, std::string_view value);
    /// A string that tells of something wrong: in the text form also without a label.
    void bad(std::string_view label, std::string_view key, std::string_view value);
    void coloursAre(bool colours) { colours_ = colours; }
    /// The text form only.
    void text(std::string_view words) { string(words, {}, {}); }
    /// In the text form with spaces between, or "None" when there are none.
    void numbers(std::string_view label,
                 std::string_view key,
                 std::span<const std::uint32_t> values);
    void endLine();
    /// In the text form each line that begins from now on stands so many tabs further right.
    void indentIs(unsigned tabs) { indent_ = tabs; }
    /// How many elements of a list to print: the structured form has all of them, the text form so
    /// many at most.
    std::size_t shownOf(std::size_t all, std::size_t most) const {
        return structured() ? all : std::min(all, most);
    }
    /// The text form's last line of such a list: "  and 7 more", if there are more.
    void andMore(std::size_t all, std::size_t most);

    /// The command failed, and this says why. The text form shows nothing of it: the answer's error
    /// does. The structured form has "errors", a list, as the last key of the document.
    void cmdErr(std::string text);
    /// What went wrong, one line each; empty when nothing did.
    std::string error() const;

    /// Nothing follows: closes what is open. Once.
    void end();

    /// Bytes that nobody has taken yet.
    std::size_t buffered() const { return buffer_.size(); }
    /// Enough for now: who produces stops here, after the element under way.
    bool full() const { return buffer_.size() >= kFull; }
    std::string takeOutput();

    static constexpr std::size_t kFull = 32U << 10U;

private:
    bool structured() const { return format_ == OutputFormat::json; }
    /// Writes what comes before a value. False when this form shows nothing of the call.
    bool begin(std::string_view label, std::string_view key);
    void beginText(std::string_view label);
    void quoted(std::string_view text);
    /// For people: control characters are shown as \x1b.
    void plain(std::string_view text);

    OutputFormat format_;
    std::string buffer_;
    std::vector<bool> open_;  // dictionaries and lists, outermost first: it is a list
    bool first_ = true;       // nothing stands in the innermost open one yet
    bool colours_ = false;
    unsigned indent_ = 0;     // text form: tabs before each line
    bool lineBegins_ = true;  // text form: nothing stands in the line yet
    std::vector<std::string> errors_;
};

}  // namespace AgentHost
