#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace Store {

/// What a look at an environment's data file found before the engine was given it. The engine
/// trusts the file's two meta pages: it divides by what stands there, and maps a file that was cut
/// off, so that the first read beyond the end ends the process. A whole file is as long as its map
/// (without taking the space).
enum class DataFile : std::uint8_t {
    usable,
    absent,      ///< no file, or one whose maker was killed before both meta pages were written
    unreadable,  ///< see the text
};

/// Looks at the file, by reading. @param text why it is unreadable, the file's name first
DataFile lookAtDataFile(const std::filesystem::path& path, std::string& text);

}  // namespace Store
