// A program that does what its arguments say and prints what came of it, one line each.

#include <kdrw/TimeTickOffsetReader.h>
#include <vqio/PIE.h>
#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/writeAll.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

void printBoard()
{
    const PIE board;
    std::printf("board %u %u %d\n", board.getBoardType(), static_cast<unsigned>(board.getDeviceCode()),
                board.hasCanFDDevice() ? 1 : 0);
}

/// @return the descriptor
int printOpen(const char* path, int flags)
{
    const int fd = open(path, flags);
    if (fd >= 0) {
        std::printf("opened\n");
    } else {
        std::printf("open failed: %s\n", strerror(errno));
    }
    return fd;
}

void printSend()
{
    const int fd = open("/dev/vqlog-fpgab", O_WRONLY);
    const CANExtTraceMessage message(11, 0, 0, CAN_FRAME_TX, CAN_STATE_OK, CAN_STANDARD, 0, 1, nullptr);
    std::vector<uint8_t> record;
    message.createByteArray(record, true, false);
    std::printf("sent %d\n", writeAll(fd, record.data(), record.size()));
    close(fd);
}

void printOffset(const std::string& device)
{
    try {
        std::printf("offset %s\n", TimeTickOffsetReader().getDeviceOffset(device) > 0 ? "known" : "zero");
    } catch (const VQException& exception) {
        std::printf("exception: %s\n", exception.what());
    }
}

void openInFork()
{
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        printOpen("/dev/vqlog-fpgab", O_WRONLY);
        std::fflush(stdout);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

/// Uses the platform when the program's static objects are destroyed.
struct LastUser
{
    ~LastUser()
    {
        if (wanted) {
            printBoard();
            const int fd = printOpen("/dev/vqlog-fpgab", O_WRONLY);
            if (fd >= 0) {
                printSend();
            }
            std::fflush(stdout);
        }
    }

    bool wanted = false;
};

LastUser lastUser;

void execute(const std::string& command)
{
    if (command == "board") {
        printBoard();
    } else if (command == "read") {
        printOpen("/dev/vqlog-fpgab", O_RDONLY);
    } else if (command == "write") {
        printOpen("/dev/vqlog-fpgab", O_WRONLY);
    } else if (command == "extension") {
        printOpen("/dev/vqlog-fpgac", O_WRONLY);
    } else if (command == "offset") {
        printOffset("fpgab");
    } else if (command == "unknown-offset") {
        printOffset("fpgaz");
    } else if (command == "send") {
        printSend();
    } else if (command == "fork") {
        openInFork();
    } else if (command == "last") {
        lastUser.wanted = true;
    } else if (command == "nobody") {
        if (seteuid(65534) != 0) {
            std::printf("cannot become nobody\n");
        }
    } else if (command == "exit-in-thread") {
        std::thread([] { std::exit(0); }).join();
    } else {
        std::printf("no such command: %s\n", command.c_str());
    }
}

} // namespace

int main(int count, char** arguments)
{
    for (int i = 1; i < count; ++i) {
        execute(arguments[i]);
    }
    return 0;
}
