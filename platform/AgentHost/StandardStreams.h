#pragma once

#include <string>
#include <string_view>

/// How a program talks to who started it, whatever that one has done with its descriptors.
namespace AgentHost {

/// Takes the descriptors 0 to 2 that are closed: else the first store or socket that is opened gets
/// such a number, and what is said on standard error goes into it. They stay unusable, so writing
/// there fails. Also has a reader that goes away and a file that may not grow be error values
/// (SIGPIPE, SIGXFSZ) and not the end. First of all in main().
void standardStreamsAreTaken();

/// "program: text" on standard error. Does not fail: who has no standard error wants to hear
/// nothing.
void tell(std::string_view program, std::string_view text) noexcept;

/// Empty when all that was printed on standard output has gone out, or its reader had enough
/// (`| head`); else why it has not.
std::string outputProblem();

}  // namespace AgentHost
