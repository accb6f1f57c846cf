#include "platform/AgentHost/StandardStreams.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

namespace AgentHost {

void standardStreamsAreTaken() {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) >= 0 || errno != EBADF) { continue; }
        // The lowest free number, which is this one: those below are taken by now. Open the wrong
        // way round, so that using it is an error as it was before.
        if (::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0) { return; }
    }
}

void tell(std::string_view program, std::string_view text) noexcept {
    std::fprintf(stderr,
                 "%.*s: %.*s\n",
                 static_cast<int>(program.size()),
                 program.data(),
                 static_cast<int>(text.size()),
                 text.data());
}

std::string outputProblem() {
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) { return {}; }
    const int reason = errno;
    pollfd reader{STDOUT_FILENO, POLLOUT, 0};
    if (::poll(&reader, 1, 0) == 1 && (reader.revents & POLLERR) != 0) { return {}; }  // gone
    return "standard output: " +
           (reason != 0 ? std::generic_category().message(reason) : "not all could be written");
}

}  // namespace AgentHost
