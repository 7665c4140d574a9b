// Calls the plug-in the way a host written in another language would: dlopen, dlsym
// "CreateInstance", then every operation by its vtable slot number, never through our
// headers' declarations. The same for IObject on objects made with the object-model templates.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "devhost/Host.h"
#include "eil/object/ObjectImpl.h"
#include "eil/values/MakeValue.h"
#include "eil/values/Values.h"
#include "host/ICommandHandler.h"
#include "host/IConfiguration.h"
#include "host/IEventFilter.h"
#include "host/IHostObservation.h"
#include "host/IHostSecurityEvent.h"
#include "host/IIdentifier.h"
#include "host/ILogSink.h"
#include "host/IMessageRouter.h"
#include "host/IMonitorRegistration.h"
#include "host/IOutputStream.h"
#include "host/IPackage.h"
#include "host/IProcessInfo.h"
#include "host/IProcessMonitor.h"
#include "host/IReportingService.h"
#include "host/IServiceProvider.h"
#include "host/IShellMonitor.h"
#include "host/IStorage.h"
#include "host/IValue.h"
#include "host/IValues.h"
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

TEST(PackageSlots, LifecycleByNumber) {
    KALVO::DevHost::Host host;
    {
        Library library;
        ASSERT_NE(library.handle, nullptr) << dlerror();
        // Without a host there is nothing to start with.
        void* hostless = library.Create(nullptr);
        ASSERT_NE(hostless, nullptr);
        EXPECT_EQ(CallSlot<std::uint32_t>(hostless, Start, static_cast<char const*>(nullptr), 0ul), 100u);
        EXPECT_EQ(CallSlot<std::uint32_t>(hostless, Stop, static_cast<char const*>(nullptr), 0ul), 0u);
        CallSlot<void>(hostless, DestroyThis);

        void* package = library.Create(host.Root());
        ASSERT_NE(package, nullptr);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Version), 1u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Install, "x", 1ul), 0u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Uninstall, static_cast<char const*>(nullptr), 0ul), 0u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Start, "{}", 2ul), 0u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Synchronize, "{", 1ul), 100u);
        EXPECT_EQ(CallSlot<std::uint32_t>(package, Stop, static_cast<char const*>(nullptr), 0ul), 0u);
        CallSlot<void>(package, DestroyThis);
    }
    EXPECT_EQ(host.OutstandingReferences(), "");
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
    auto handler = [](char const*, char const*, unsigned long, EIL::Stream::IOutputStream&) -> Result::Code {
        return 0;
    };
    CheckObjectSlots(
        EIL::Object::ObjectImpl<Messaging::Utils::CommandHandlerImpl<decltype(handler)>>::Make(handler).Detach(),
        0x4aac466709a0e932, "CommandHandlerImpl");
}

TEST(ObjectSlots, ObjectValueHandsOutItsWrappedContainer) {
    using namespace KALVO;
    auto container = EIL::Values::MakeValues();
    auto value = EIL::Values::MakeObjectValue(container);
    void* out = nullptr;
    for (std::uint64_t id :
         {std::uint64_t{0x74804c16a3638891}, std::uint64_t{0xc5fbb630cc544393}, std::uint64_t{0x0b079c6174f0ef9f}}) {
        ASSERT_EQ(CallSlot<std::uint32_t>(value.Get(), 2, id, &out), 0u);
        EXPECT_EQ(out, static_cast<Agent::Hosting::IObject*>(container.Get()));
        EXPECT_EQ(CallSlot<std::uint64_t>(out, 1), 2u);  // the container: ours and the value's
    }
    ASSERT_EQ(CallSlot<std::uint32_t>(value.Get(), 2, std::uint64_t{0xb76fca7ea41306d2}, &out), 0u);
    EXPECT_EQ(out, static_cast<Agent::Hosting::IObject*>(value.Get()));
    EXPECT_EQ(CallSlot<std::uint64_t>(out, 1), 1u);
}

// The slot of every operation of every interface that crosses the boundary, as the compiler
// numbers it from host/. Both sides of the boundary compile against those headers, so a moved
// operation would pass every other test while a host built elsewhere calls the wrong function.
// In the Itanium C++ ABI a pointer to a virtual member function holds the operation's byte
// offset in its interface's vtable: plus 1 on x86-64; on arm64 (Linux and macOS alike) the
// offset itself, the virtual flag being kept in the second word.
template <class Member>
std::ptrdiff_t SlotOf(Member member) {
    static_assert(sizeof(Member) == 2 * sizeof(std::ptrdiff_t));
    std::ptrdiff_t words[2];
    std::memcpy(words, &member, sizeof words);
#if defined(__aarch64__)
    const std::ptrdiff_t offset = words[0];
#else
    const std::ptrdiff_t offset = words[0] - 1;
#endif
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(InterfaceSlots, EveryOperationKeepsItsNumber) {
    using namespace KALVO;
    struct Row {
        std::ptrdiff_t slot;
        std::ptrdiff_t expected;
        char const* name;
    };
#define KALVO_SLOT(member, number) \
    Row { SlotOf(&member), number, #member }
    const Row rows[] = {
        KALVO_SLOT(Agent::Hosting::IObject::AddRef, 0),
        KALVO_SLOT(Agent::Hosting::IObject::Release, 1),
        KALVO_SLOT(Agent::Hosting::IObject::GetInterface, 2),
        // IPackage has a virtual destructor: two slots (complete and deleting) come first.
        KALVO_SLOT(Agent::Hosting::IPackage::DestroyThis, 2),
        KALVO_SLOT(Agent::Hosting::IPackage::Version, 3),
        KALVO_SLOT(Agent::Hosting::IPackage::Install, 4),
        KALVO_SLOT(Agent::Hosting::IPackage::Uninstall, 5),
        KALVO_SLOT(Agent::Hosting::IPackage::Start, 6),
        KALVO_SLOT(Agent::Hosting::IPackage::Stop, 7),
        KALVO_SLOT(Agent::Hosting::IPackage::Synchronize, 8),
        KALVO_SLOT(Agent::Hosting::IServiceProvider::GetService, 5),
        KALVO_SLOT(Messaging::ICommandHandler::Execute, 3),
        KALVO_SLOT(Messaging::IMessageRouter::RegisterCommandHandler, 3),
        KALVO_SLOT(Messaging::IMessageRouter::UnregisterCommandHandler, 4),
        KALVO_SLOT(EIL::Stream::IOutputStream::Write, 3),
        KALVO_SLOT(Logging::ILogSink::Log, 3),
        KALVO_SLOT(Configuration::IConfiguration::GetData, 4),
        KALVO_SLOT(Configuration::IConfiguration::ReleaseData, 5),
        KALVO_SLOT(Storage::IStorage::GetValue, 6),
        KALVO_SLOT(Storage::IStorage::SetValue, 8),
        KALVO_SLOT(Reporting::IReportingService::CreateSecurityEvent, 3),
        KALVO_SLOT(Reporting::IReportingService::ReportSecurityEvent, 4),
        KALVO_SLOT(Reporting::IHostSecurityEvent::CreateObservation, 9),
        KALVO_SLOT(Reporting::IHostObservation::AddObservable, 9),
        KALVO_SLOT(ESP::v0::IMonitorRegistration::RegisterProcessMonitor, 3),
        KALVO_SLOT(ESP::v0::IMonitorRegistration::UnregisterProcessMonitor, 4),
        KALVO_SLOT(ESP::v0::IMonitorRegistration::RegisterShellMonitor, 5),
        KALVO_SLOT(ESP::v0::IMonitorRegistration::UnregisterShellMonitor, 6),
        KALVO_SLOT(ESP::v0::IEventFilter::FilterEvent, 8),
        KALVO_SLOT(ESP::v0::IProcessInfo::GetPath, 5),
        KALVO_SLOT(ESP::v0::IProcessInfo::GetCommandLine, 6),
        KALVO_SLOT(ESP::v0::IProcessInfo::GetUid, 7),
        // The monitors are no IObject: their operations start at slot 0.
        KALVO_SLOT(ESP::v0::IProcessMonitor::OnProcessCreate, 0),
        KALVO_SLOT(ESP::v0::IProcessMonitor::OnProcessCreateInstant, 1),
        KALVO_SLOT(ESP::v0::IProcessMonitor::OnProcessExists, 2),
        KALVO_SLOT(ESP::v0::IProcessMonitor::OnProcessTerminate, 3),
        KALVO_SLOT(ESP::v0::IProcessMonitor::OnProcessTerminateInstant, 4),
        KALVO_SLOT(ESP::v0::IShellMonitor::OnShellCommand, 0),
        KALVO_SLOT(EIL::Values::IIdentifier::Name, 0),
        KALVO_SLOT(EIL::Values::IIdentifier::Id, 1),
        KALVO_SLOT(EIL::Values::IValue::Type, 3),
        KALVO_SLOT(EIL::Values::IValue::GetSize, 4),
        KALVO_SLOT(EIL::Values::IValue::GetData, 5),
        KALVO_SLOT(EIL::Values::IValues::Get, 3),
        KALVO_SLOT(EIL::Values::IValues::Set, 4),
        KALVO_SLOT(EIL::Values::IValues::Remove, 5),
        KALVO_SLOT(EIL::Values::IValues::Clear, 6),
        KALVO_SLOT(EIL::Values::IValues::Count, 7),
        KALVO_SLOT(EIL::Values::IValues::GetByIndex, 8),
    };
#undef KALVO_SLOT
    for (const Row& row : rows) EXPECT_EQ(row.slot, row.expected) << row.name;
}

TEST(InterfaceIds, AreDistinct) {
    using namespace KALVO;
    const std::uint64_t ids[] = {
        Agent::Hosting::IObject::Id,
        EIL::Values::IValues::Id,
        EIL::Values::IValue::Id,
        EIL::Values::WrappedValuesId,
        Messaging::ICommandHandler::Id,
        Agent::Hosting::IServiceProvider::Id,
        Configuration::IConfiguration::Id,
        Storage::IStorage::Id,
        Messaging::IMessageRouter::Id,
        Logging::ILogSink::Id,
        Reporting::IReportingService::ServiceId,
        ESP::v0::IMonitorRegistration::ServiceId,
        ESP::v0::IEventFilter::ServiceId,
    };
    for (std::size_t i = 0; i < std::size(ids); ++i)
        for (std::size_t j = i + 1; j < std::size(ids); ++j) EXPECT_NE(ids[i], ids[j]) << i << " " << j;
}

}  // namespace
