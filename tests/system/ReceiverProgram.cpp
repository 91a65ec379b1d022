// An application that receives many identifiers, built as a user builds one. Argument: number of frames. Its input
// names what it registers, a line each: channel, identifier in three or eight hex digits, behind it ## for CAN FD. It
// says "online" when frames flow; after so many frames it writes them in the order of their arrival and ends.
#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

/// What all interfaces of the program have received.
class Log
{
public:
    void add(std::string line)
    {
        const std::lock_guard lock(mutex);
        lines.push_back(std::move(line));
        changed.notify_all();
    }
    void setStatus(int newStatus)
    {
        const std::lock_guard lock(mutex);
        status = newStatus;
        changed.notify_all();
    }

    void awaitOnline()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return status == 1; });
    }
    std::vector<std::string> awaitLines(size_t count)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return lines.size() >= count; });
        return lines;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    int status = 0;
};

/// One identifier of one channel.
class Receiver : public InterfaceBaseCb
{
public:
    Receiver(Log& sharedLog, uint8_t channel, const std::string& identifier)
        : log(sharedLog), isFd(identifier.find("##") != std::string::npos),
          digits(identifier.substr(0, identifier.find('#'))),
          head("can" + std::to_string(channel) + " " + digits + (isFd ? "##0" : "#")),
          configuration{channel, static_cast<uint32_t>(std::stoul(digits, nullptr, 16)), type(), {}}
    {
        can.callbacks.insert(this);
        configure();
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() override = default;

    void configure() { can.configure(configuration); }

    void onDataReceived(const uint8_t* data, size_t size) override
    {
        std::string line = head;
        for (size_t i = PAYLOAD_OFFSET; i < size; ++i) {
            char pair[3];
            std::snprintf(pair, sizeof pair, "%02X", unsigned{data[i]});
            line += pair;
        }
        log.add(line);
    }
    void onInterfaceState(int status) override { log.setStatus(status); }

private:
    /// What arrives is the whole record of the trace stream; the payload is its last field.
    static constexpr size_t PAYLOAD_OFFSET = 23;

    cantype_t type() const
    {
        const bool isExtended = digits.size() > 3;
        return isFd ? (isExtended ? CAN_FD_EXTENDED : CAN_FD_STANDARD) : (isExtended ? CAN_EXTENDED : CAN_STANDARD);
    }

    Log& log;
    const bool isFd;
    const std::string digits;
    const std::string head;
    const CanInterface::Configuration configuration;
    CanInterface can;
};

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2) {
        std::cerr << "usage: " << arguments[0] << " COUNT\n";
        return 2;
    }
    // All of the input first: what the library logs meanwhile could fill the pipe of a caller who still writes.
    std::vector<std::pair<uint8_t, std::string>> wanted;
    unsigned channel = 0;
    std::string identifier;
    while (std::cin >> channel >> identifier) {
        wanted.emplace_back(static_cast<uint8_t>(channel), identifier);
    }
    Log log;
    std::vector<std::unique_ptr<Receiver>> receivers;
    receivers.reserve(wanted.size());
    for (const auto& [onChannel, id] : wanted) {
        receivers.push_back(std::make_unique<Receiver>(log, onChannel, id));
    }
    MsgRxHandler::getInstance()->setOnline();
    log.awaitOnline();
    for (const auto& receiver : receivers) {
        receiver->configure();
    }
    std::cout << "online" << std::endl;
    for (const std::string& line : log.awaitLines(std::stoul(arguments[1]))) {
        std::cout << line << "\n";
    }
    MsgRxHandler::getInstance()->setOffline();
    return 0;
}
