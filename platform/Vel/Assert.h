#pragma once

namespace Vel {
/// Prints the condition's text and where it stood, and stops the process.
[[noreturn]] void assertionFailed(const char* condition, const char* file, int line);
}  // namespace Vel

/// A broken precondition of this process's own making. Always on, never recovered from; nothing
/// that comes from outside may reach one. VEL_ASSERT(condition) prints the condition as written.
#define VEL_ASSERT(condition) \
    (static_cast<bool>(condition) ? void() : ::Vel::assertionFailed(#condition, __FILE__, __LINE__))
/// The same with a text of its own.
#define VEL_ASSERT_TEXT(condition, text) \
    (static_cast<bool>(condition) ? void() : ::Vel::assertionFailed(text, __FILE__, __LINE__))
