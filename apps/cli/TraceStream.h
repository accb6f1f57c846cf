#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/Blink/RingFile.h"
#include "platform/Blink/TraceFiles.h"

namespace Pel::Cli {

/// The messages of several ring files in the order of their times, each once, and what is written
/// into them later. Files that come in their place, as an agent makes one when it starts again, are
/// found when they are looked for.
class TraceStream {
public:
    /// What is to be said between messages.
    struct Notice {
        enum class What { began, lost };
        What what = What::began;
        std::filesystem::path file;
        std::uint64_t lost = 0;  ///< messages: overwritten before they were read, or unfinished
    };

    /// With `goesOn` false there is one reading, which waits for nothing that is unfinished.
    explicit TraceStream(bool goesOn) : goesOn_{goesOn} {}

    /// Empty, or why it cannot be read.
    std::string open(const std::filesystem::path& file);
    /// What is there already is not new.
    void isKnown(const std::filesystem::path& file) { known_[file] = identity(file); }
    /// Of these files those that are new. Ask before a reading and open them after it: then what was
    /// written before they came is read before what they hold.
    std::vector<std::filesystem::path> newOf(const std::vector<std::filesystem::path>& files) const;
    /// Opens these new files. What cannot be read yet stays new.
    std::vector<Notice> openNew(const std::vector<std::filesystem::path>& files);
    /// What came since the last reading. `notices` gets what was lost before it.
    std::vector<Blink::Message> read(std::vector<Notice>& notices);

private:
    using Identity = std::pair<dev_t, ino_t>;
    struct Source {
        std::filesystem::path file;
        Identity identity;
        Blink::RingReader reader;
        Blink::RingPosition position;
        bool begun = false;  // what its ring has lost before the first reading is no loss
    };

    static Identity identity(const std::filesystem::path& file);
    std::vector<Blink::Message> read(Source& source, std::vector<Notice>& notices) const;

    bool goesOn_;
    std::list<Source> sources_;  // a reader stays where it is
    std::map<std::filesystem::path, Identity> known_;
};

}  // namespace Pel::Cli
