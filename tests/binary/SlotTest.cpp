// Calls the plug-in the way a host written in another language would: dlopen, dlsym
// "CreateInstance", then every operation by its vtable slot number, never through our
// headers' declarations. The same for IObject on objects made with the object-model templates.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "devhost/Host.h"
#include "host/IConfiguration.h"
#include "host/IEventFilter.h"
#include "host/ILogSink.h"
#include "host/IMessageRouter.h"
#include "host/IMonitorRegistration.h"
#include "host/IReportingService.h"
#include "host/IServiceProvider.h"
#include "host/IStorage.h"
#include "eil/object/ObjectImpl.h"
#include "eil/values/MakeValue.h"
#include "eil/values/Values.h"
#include "package/CommandHandlerImpl.h"

namespace {

// One slot of an object's vtable as a plain function taking the object first (the Itanium
// C++ ABI of x86-64 and arm64).
template <class Result, class... Args>
Result CallSlot(void* object, int slot, Args... args) {
    void** vtable = *static_cast<void***>(object);
    return reinterpret_cast<Result (*)(void*, Args...)>(vtable[slot])(object, args...);
}

struct Library {
    void* handle = dlopen(KALVO_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    ~Library() {
        if (handle) dlclose(handle);
    }
    void* Create(void* host) {
        auto create = reinterpret_cast<void* (*)(void*)>(dlsym(handle, "CreateInstance"));
        return create ? create(host) : nullptr;
    }
};

enum PackageSlot { DestroyThis = 2, Version = 3, Install = 4, Uninstall = 5, Start = 6, Stop = 7, Synchronize = 8 };

TEST(PackageSlots, LifecycleByNumberWithoutAHost) {
    Library library;
    ASSERT_NE(library.handle, nullptr) << dlerror();
    void* package = library.Create(nullptr);
    ASSERT_NE(package, nullptr);
    EXPECT_EQ(CallSlot<std::uint32_t>(package, Version), 1u);
    EXPECT_EQ(CallSlot<std::uint32_t>(package, Install, "x", 1ul), 0u);
    EXPECT_EQ(CallSlot<std::uint32_t>(package, Uninstall, static_cast<char const*>(nullptr), 0ul), 0u);
    EXPECT_EQ(CallSlot<std::uint32_t>(package, Start, static_cast<char const*>(nullptr), 0ul), 100u);
    EXPECT_EQ(CallSlot<std::uint32_t>(package, Stop, static_cast<char const*>(nullptr), 0ul), 0u);
    EXPECT_EQ(CallSlot<std::uint32_t>(package, Version), 1u);
    CallSlot<void>(package, DestroyThis);
}

TEST(PackageSlots, LifecycleByNumberWithAHost) {
    KALVO::DevHost::Host host;
    {
        Library library;
        void* package = library.Create(host.Root());
        ASSERT_NE(package, nullptr);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Start, "{}", 2ul), 0u);
        const std::string context = R"({"reason":"configuration"})";
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Synchronize, context.data(), static_cast<unsigned long>(context.size())), 0u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Synchronize, "{", 1ul), 100u);
        EXPECT_EQ(host.Monitors().ProcessMonitors().size(), 1u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Stop, static_cast<char const*>(nullptr), 0ul), 0u);
        EXPECT_EQ(host.Monitors().ProcessMonitors().size(), 0u);
        CallSlot<void>(package, DestroyThis);
    }
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

// IObject by slot: 0 AddRef, 1 Release, 2 GetInterface.
void CheckObjectSlots(KALVO::Agent::Hosting::IObject* object, std::uint64_t ownId, const char* name) {
    SCOPED_TRACE(name);
    EXPECT_EQ(CallSlot<std::uint64_t>(object, 0), 2u);
    EXPECT_EQ(CallSlot<std::uint64_t>(object, 1), 1u);

    void* out = reinterpret_cast<void*>(0x1234);
    EXPECT_EQ(CallSlot<std::uint32_t>(object, 2, std::uint64_t{0x0123456789abcdef}, &out), 43u);
    EXPECT_EQ(out, reinterpret_cast<void*>(0x1234)) << "out must stay untouched";
    EXPECT_EQ(CallSlot<std::uint64_t>(object, 0), 2u) << "a failed lookup must not change the count";
    EXPECT_EQ(CallSlot<std::uint64_t>(object, 1), 1u);

    for (std::uint64_t id : {std::uint64_t{0x74804c16a3638891}, ownId}) {
        EXPECT_EQ(CallSlot<std::uint32_t>(object, 2, id, &out), 0u);
        EXPECT_EQ(CallSlot<std::uint64_t>(object, 0), 3u) << "a lookup adds one reference";
        EXPECT_EQ(CallSlot<std::uint64_t>(out, 1), 2u);
        EXPECT_EQ(CallSlot<std::uint64_t>(out, 1), 1u);
    }
    EXPECT_EQ(CallSlot<std::uint64_t>(object, 1), 0u);
}

TEST(ObjectSlots, TemplateMadeObjectsKeepTheIObjectContract) {
    using namespace KALVO;
    CheckObjectSlots(EIL::Values::MakeValues().Detach(), 0xc5fbb630cc544393, "Values");
    CheckObjectSlots(EIL::Values::MakeStringValue("text").Detach(), 0xb76fca7ea41306d2, "StringValue");
    CheckObjectSlots(EIL::Values::MakeNumberValue(7).Detach(), 0xb76fca7ea41306d2, "Value<uint64>");
    auto handler = [](char const*, char const*, unsigned long, EIL::Stream::IOutputStream&) -> Result::Code { return 0; };
    CheckObjectSlots(EIL::Object::ObjectImpl<Messaging::Utils::CommandHandlerImpl<decltype(handler)>>::Make(handler).Detach(),
                     0x4aac466709a0e932, "CommandHandlerImpl");
}

TEST(ObjectSlots, ObjectValueHandsOutItsWrappedContainer) {
    using namespace KALVO;
    auto container = EIL::Values::MakeValues();
    auto value = EIL::Values::MakeObjectValue(container);
    void* out = nullptr;
    for (std::uint64_t id : {std::uint64_t{0x74804c16a3638891}, std::uint64_t{0xc5fbb630cc544393}, std::uint64_t{0x0b079c6174f0ef9f}}) {
        ASSERT_EQ(CallSlot<std::uint32_t>(value.Get(), 2, id, &out), 0u);
        EXPECT_EQ(out, static_cast<Agent::Hosting::IObject*>(container.Get()));
        EXPECT_EQ(CallSlot<std::uint64_t>(out, 1), 2u);  // the container: ours and the value's
    }
    ASSERT_EQ(CallSlot<std::uint32_t>(value.Get(), 2, std::uint64_t{0xb76fca7ea41306d2}, &out), 0u);
    EXPECT_EQ(out, static_cast<Agent::Hosting::IObject*>(value.Get()));
    EXPECT_EQ(CallSlot<std::uint64_t>(out, 1), 1u);
}

TEST(InterfaceIds, AreDistinct) {
    using namespace KALVO;
    const std::uint64_t ids[] = {
        Agent::Hosting::IObject::Id, EIL::Values::IValues::Id, EIL::Values::IValue::Id, EIL::Values::WrappedValuesId,
        Messaging::ICommandHandler::Id, Agent::Hosting::IServiceProvider::Id, Configuration::IConfiguration::Id,
        Storage::IStorage::Id, Messaging::IMessageRouter::Id, Logging::ILogSink::Id,
        Reporting::IReportingService::ServiceId, ESP::v0::IMonitorRegistration::ServiceId, ESP::v0::IEventFilter::ServiceId,
    };
    for (std::size_t i = 0; i < std::size(ids); ++i)
        for (std::size_t j = i + 1; j < std::size(ids); ++j) EXPECT_NE(ids[i], ids[j]) << i << " " << j;
}

}  // namespace
