#pragma once

#include <filesystem>
#include <string>

namespace Toggle {

/// Directory of the toggle files; default "toggles" in the working directory.
void directoryIs(std::filesystem::path directory);

/// State of a feature toggle: the Boolean member `name` of the JSON file `file`. `byDefault` when
/// the file or the member is missing, or (with a trace) when the file is malformed. Each (file,
/// name) is read once per process and then remembered.
bool getToggleState(const std::string& file, const std::string& name, bool byDefault);

/// Forgets what was read, so that a test can set a toggle. Callers that keep the state keep it.
void forgetAll();

}  // namespace Toggle
