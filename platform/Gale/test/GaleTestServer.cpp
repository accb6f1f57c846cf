// A server over a TestView for clients in other languages. Prints its port, then takes orders from
// standard input, one a line, each answered with "ok": "set <beast> <colour>", "erase <beast>",
// "ahead <seconds>": so much time has passed.

#include "platform/Gale/test/ServerFixture.h"

#include <chrono>
#include <cstdint>
#include <iostream>
#include <sstream>

int main() {
    Gale::ServerFixture served;
    served.start();
    if (!served.machine->running()) {
        std::cerr << served.machine->error() << '\n';
        return 1;
    }
    std::cout << served.machine->port() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream order{line};
        std::string verb;
        std::uint64_t beast = 0;
        std::string colour;
        order >> verb >> beast >> colour;
        if (verb == "set") {
            served.view->beasts.set(beast, colour);
        } else if (verb == "ahead") {
            served.clock.advance(std::chrono::seconds{beast});
        } else {
            served.view->beasts.erase(beast);
        }
        served.scheduler->runUntilIdle();
        std::cout << "ok" << std::endl;
    }
    return 0;
}
