#include <gtest/gtest.h>

#include <string>

#include "devhost/Host.h"
#include "eil/object/ObjectImpl.h"
#include "host/ICommandHandler.h"
#include "host/IMessageRouter.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::ObjectPtr;
using Messaging::ICommandHandler;
using Messaging::IMessageRouter;

// Answers with its name and the payload, written in pieces of `piece` bytes; reports a short
// write as 12, as a real handler does.
class EchoHandler : public ICommandHandler {
public:
    using Interfaces = EIL::Object::InterfaceList<ICommandHandler>;

    EchoHandler(std::string name, int* destroyed) : m_name(std::move(name)), m_destroyed(destroyed) {}
    ~EchoHandler() { ++*m_destroyed; }

    Result::Code Execute(char const* command, char const* payload, unsigned long size,
                         EIL::Stream::IOutputStream& output) override {
        const std::string answer = m_name + ":" + command + ":" + std::string(payload, size);
        unsigned long written = 0;
        if (output.Write(answer.data(), answer.size(), &written) != Result::Success) return Result::ProtocolError;
        return written == answer.size() ? Result::Success : Result::OutOfMemory;
    }

private:
    std::string m_name;
    int* m_destroyed;
};

using Echo = EIL::Object::ObjectImpl<EchoHandler>;

TEST(MessageRouter, KeepsReplacesAndReleasesHandlers) {
    Host host;
    ObjectPtr<IMessageRouter> router;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), router), Result::Success);
    int destroyed = 0;
    {
        auto first = Echo::Make("first", &destroyed);
        auto second = Echo::Make("second", &destroyed);
        ASSERT_EQ(router->RegisterCommandHandler("svc!Cmd", first.Get()), Result::Success);
        ASSERT_EQ(router->RegisterCommandHandler("svc!Cmd", second.Get()), Result::Success);
        first.Reset();
        EXPECT_EQ(destroyed, 1) << "the replaced handler must be released";
        second.Reset();
        EXPECT_EQ(destroyed, 1) << "the router keeps its own reference";
    }
    std::string answer;
    EXPECT_EQ(host.Router().Execute("svc!Cmd", "ping", answer), Result::Success);
    EXPECT_EQ(answer, "second:svc!Cmd:ping");

    EXPECT_EQ(router->UnregisterCommandHandler("svc!Cmd"), Result::Success);
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(router->UnregisterCommandHandler("svc!Cmd"), Result::NoSuchEntry);
    EXPECT_EQ(host.Router().Execute("svc!Cmd", "ping", answer), Result::NotImplemented);
    EXPECT_EQ(answer, "");
    EXPECT_EQ(router->RegisterCommandHandler(nullptr, nullptr), Result::InvalidArgument);
}

TEST(MessageRouter, StreamCanTakeFewerBytesThanOffered) {
    Host host;
    int destroyed = 0;
    auto handler = Echo::Make("h", &destroyed);
    ASSERT_EQ(host.Router().RegisterCommandHandler("k", handler.Get()), Result::Success);
    const struct {
        StreamLimits limits;
        Result::Code code;
        char const* answer;
    } cases[] = {
        {{}, Result::Success, "h:k:payload"},
        {{4, SIZE_MAX}, Result::OutOfMemory, "h:k:"},
        {{SIZE_MAX, 2}, Result::OutOfMemory, "h:"},
        {{SIZE_MAX, 0}, Result::OutOfMemory, ""},
    };
    for (const auto& c : cases) {
        std::string answer;
        EXPECT_EQ(host.Router().Execute("k", "payload", answer, c.limits), c.code) << c.answer;
        EXPECT_EQ(answer, c.answer);
    }
    host.Router().Clear();
    handler.Reset();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

}  // namespace
}  // namespace KALVO::DevHost
