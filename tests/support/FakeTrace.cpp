#include <support/FakeTrace.h>

#include <support/Effects.h>

#include <vqtrace/TraceMessageBuffer.h>
#include <vqutil/LogUtil.h>

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>

#include <sys/socket.h>
#include <unistd.h>

namespace faketrace {

namespace {

std::mutex mutex;
std::map<uint64_t, std::vector<Step>> batches;
uint64_t nextBatch = 1;
bool readsFail = false;

} // namespace

Feed::Feed()
{
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("no socket pair");
    }
}

Feed::~Feed()
{
    ::close(ends[1]);
}

void Feed::arrives(std::vector<Step> steps)
{
    uint64_t batch = 0;
    {
        const std::lock_guard lock(mutex);
        batch = nextBatch++;
        batches[batch] = std::move(steps);
    }
    // The ticket travels through the descriptor, so it does not matter under which number the buffer knows it.
    if (::send(ends[1], &batch, sizeof(batch), MSG_NOSIGNAL) != sizeof(batch)) {
        throw std::runtime_error("the device's end is closed");
    }
}

void failReads(bool fail)
{
    const std::lock_guard lock(mutex);
    readsFail = fail;
}

} // namespace faketrace

class TraceMessageBuffer::Impl
{
public:
    int fd;
    std::deque<faketrace::Step> steps{};
    faketrace::Record current{};
};

TraceMessageBuffer::TraceMessageBuffer(int fd, size_t sizeBytes, Mutex* logMutex)
    : impl(std::make_unique<Impl>(Impl{.fd = fd}))
{
    effects::note("buffer " + std::to_string(fd) + " " + std::to_string(sizeBytes) +
                  (logMutex == &LogUtil::logMutex ? " log lock" : ""));
}

TraceMessageBuffer::~TraceMessageBuffer()
{
    effects::note("buffer " + std::to_string(impl->fd) + " gone");
}

int TraceMessageBuffer::read()
{
    using namespace faketrace;
    effects::note("read " + std::to_string(impl->fd));
    uint64_t batch = 0;
    if (::recv(impl->fd, &batch, sizeof(batch), MSG_DONTWAIT) != sizeof(batch)) {
        const std::lock_guard lock(mutex);
        return readsFail ? -1 : 0;
    }
    const std::lock_guard lock(mutex);
    for (Step& step : batches[batch]) {
        impl->steps.push_back(std::move(step));
    }
    batches.erase(batch);
    return 1;
}

bool TraceMessageBuffer::getNextMessage(unsigned char*& begin, unsigned char*& end)
{
    if (impl->steps.empty()) {
        return false;
    }
    faketrace::Step step = std::move(impl->steps.front());
    impl->steps.pop_front();
    if (const auto* const failure = std::get_if<faketrace::Failure>(&step)) {
        throw VQException(failure->text);
    }
    impl->current = std::move(std::get<faketrace::Record>(step));
    begin = impl->current.data();
    end = begin + impl->current.size();
    return true;
}
