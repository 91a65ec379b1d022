// A program on the process bus, built as a user builds one. Argument "answer": sends back every text that arrives;
// "ask NAME TEXT": sends a text to the processes of a name and waits until it comes back.
#include <vqpbus/VQPBusProxy.h>
#include <vqtrace/SystemMessage.h>

#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

std::unique_ptr<MessageBase> textMessage(const std::string& text)
{
    return std::make_unique<SystemMessage>(SystemMessage::MESSAGE_ID, 0, SystemMessage::COMMAND_REGISTER, text);
}

class Answerer : public VQPBusProxyCallback
{
public:
    void vqpBusProxyCb(const MessageBase* message, const std::string& source, const std::string&) override
    {
        if (const auto* const system = dynamic_cast<const SystemMessage*>(message)) {
            VQPBusProxy::getInstance()->sendTo(source, textMessage(system->text), false);
        }
    }
    void vqpBusProxyStatusCb(StatusCBType_t, int, const std::string& text) override
    {
        std::cout << text << std::endl;
    }
};

class Asker : public VQPBusProxyCallback
{
public:
    void vqpBusProxyCb(const MessageBase* message, const std::string& source, const std::string&) override
    {
        if (const auto* const system = dynamic_cast<const SystemMessage*>(message)) {
            answer.set_value(source + " says " + system->text);
        }
    }
    void vqpBusProxyStatusCb(StatusCBType_t, int, const std::string&) override {}

    std::promise<std::string> answer;
};

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount == 4 && arguments[1] == std::string("ask")) {
        Asker asker;
        VQPBusProxy::getInstance()->setCallBack(asker);
        if (!VQPBusProxy::getInstance()->sendTo(arguments[2], textMessage(arguments[3]), false)) {
            return 1;
        }
        std::cout << asker.answer.get_future().get() << std::endl;
        VQPBusProxy::getInstance()->removeCallBack(asker);
        return 0;
    }
    if (argumentCount == 2 && arguments[1] == std::string("answer")) {
        Answerer answerer;
        VQPBusProxy::getInstance()->setCallBack(answerer);
        std::cin.get(); // until the input ends
        VQPBusProxy::getInstance()->removeCallBack(answerer);
        return 0;
    }
    std::cerr << "usage: " << arguments[0] << " answer | ask NAME TEXT\n";
    return 2;
}
