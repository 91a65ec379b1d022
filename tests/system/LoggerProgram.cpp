// A virtual logger in a process of its own, to be killed. Arguments: socket path, and "plain" or "extension". Runs
// to the end of its standard input.
#include <logger/VirtualLogger.h>

#include <exception>
#include <iostream>
#include <limits>
#include <string>

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3) {
        std::cerr << "usage: " << arguments[0] << " SOCKET plain|extension\n";
        return 2;
    }
    try {
        vlogger::Options options;
        options.socketPath = arguments[1];
        if (arguments[2] == std::string("extension")) {
            options.board = vlogger::board::WITH_EXTENSION;
        }
        const vlogger::VirtualLogger logger(options);
        std::cout << "ready" << std::endl;
        std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
