#include "AnswerBox.h"

#include <utility>

void AnswerBox::onMessage(const CANTransportTraceMessage* msg)
{
    const std::lock_guard lock(mutex);
    answers.push_back(msg->data);
    arrived.notify_one();
}

std::optional<std::vector<uint8_t>> AnswerBox::await(std::chrono::seconds patience)
{
    std::unique_lock lock(mutex);
    if (!arrived.wait_for(lock, patience, [this] { return !answers.empty(); })) {
        return std::nullopt;
    }
    std::vector<uint8_t> answer = std::move(answers.front());
    answers.pop_front();
    return answer;
}
