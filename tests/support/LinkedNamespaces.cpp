#include <support/LinkedNamespaces.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <thread>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string outputOf(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen((command + " 2>&1").c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> buffer;
    while (pipe != nullptr && fgets(buffer.data(), static_cast<int>(buffer.size()), pipe.get()) != nullptr) {
        output += buffer.data();
    }
    return output;
}

/// Starts a process that only holds a network namespace.
/// @return its id, or -1
pid_t startHost()
{
    int ready[2] = {-1, -1};
    if (pipe(ready) != 0) {
        return -1;
    }
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const char done = unshare(CLONE_NEWNET) == 0 ? 'y' : 'n';
        if (write(ready[1], &done, 1) == 1) {
            pause();
        }
        _exit(0);
    }
    char answer = 'n';
    close(ready[1]);
    const bool isReady = child > 0 && read(ready[0], &answer, 1) == 1 && answer == 'y';
    close(ready[0]);
    if (child > 0 && !isReady) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return isReady ? child : -1;
}

} // namespace

LinkedNamespaces::LinkedNamespaces()
{
    if (unshare(CLONE_NEWNET) != 0) {
        reason = std::string("no network namespace of our own: ") + strerror(errno);
        return;
    }
    otherHost = startHost();
    if (otherHost < 0) {
        reason = "no network namespace for a second host";
        return;
    }
    std::string said = ip("link set lo up");
    said += ip("link add vqa type veth peer name vqb netns " + std::to_string(otherHost));
    said += ip("link set vqa up");
    said += otherHostIp("link set vqb up");
    if (!said.empty()) {
        reason = "no veth pair: " + said;
    } else if (!awaitRunning()) {
        reason = "the veth pair does not come up";
    }
}

LinkedNamespaces::~LinkedNamespaces()
{
    if (otherHost > 0) {
        kill(otherHost, SIGKILL);
        waitpid(otherHost, nullptr, 0);
    }
}

std::string LinkedNamespaces::ip(const std::string& arguments) const
{
    return outputOf("ip " + arguments);
}

std::string LinkedNamespaces::otherHostIp(const std::string& arguments) const
{
    return outputOf("nsenter -t " + std::to_string(otherHost) + " -n ip " + arguments);
}

std::vector<std::string> LinkedNamespaces::addresses() const
{
    std::istringstream output(ip("-o -4 addr show dev vqa"));
    std::vector<std::string> found;
    std::string line;
    while (std::getline(output, line)) {
        std::istringstream words(line.substr(0, line.find('\\')));
        std::string word;
        std::string address;
        std::string last;
        while (words >> word) {
            if (last == "inet") {
                address = word;
            }
            last = word;
        }
        found.push_back(address + " " + last);
    }
    return found;
}

std::string LinkedNamespaces::otherHostHardware() const
{
    std::istringstream output(otherHostIp("-o link show dev vqb"));
    std::string word;
    while (output >> word && word != "link/ether") {
    }
    output >> word;
    return word;
}

/// The kernel announces the carrier a moment after both ends are up.
bool LinkedNamespaces::awaitRunning() const
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq question = {};
    std::strcpy(question.ifr_name, "vqa");
    bool isRunning = false;
    while (!isRunning && std::chrono::steady_clock::now() < end) {
        isRunning = ioctl(fd, SIOCGIFFLAGS, &question) == 0 && (question.ifr_flags & IFF_RUNNING) != 0;
        std::this_thread::yield();
    }
    close(fd);
    return isRunning;
}
