#include "devhost/tool/TraceFormat.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <cstdint>
#include <optional>

#include "devhost/ValidUtf8.h"
#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

namespace {

namespace RJ = EIL::RJ;
using Writer = RJ::Writer<RJ::StringBuffer>;

// The kinds' spelling in a trace, in EventKind's order.
constexpr std::string_view KindNames[EventKindCount] = {"create", "exists", "terminate", "shell"};

void WriteProcess(Writer& writer, const ProcessRecord& process) {
    const auto number = [&](char const* name, std::uint64_t value) { writer.Key(name), writer.Uint64(value); };
    const auto text = [&](char const* name, std::string_view value) { writer.Key(name), WriteJsonText(writer, value); };
    writer.StartObject();
    number("pid", process.pid);
    number("ppid", process.parentPid);
    if (process.path) text("path", *process.path);
    if (process.commandLine) text("command_line", *process.commandLine);
    text("uid", process.uid);
    if (process.userId) number("user_id", *process.userId);
    if (!process.user.empty()) text("user", process.user);
    if (process.startTime != 0) number("start_time", process.startTime);
    writer.EndObject();
}

// The member `name` of `object` (`owner` names the object in messages): nothing when absent
// (or null, where `nullable`), else a value that `is` accepts, else a TraceFormatError naming
// `expected`.
const RJ::Value* Member(const RJ::Value& object, std::string_view owner, char const* name, bool (RJ::Value::*is)() const,
                        char const* expected, bool nullable = false) {
    const auto member = object.FindMember(name);
    if (member == object.MemberEnd() || (nullable && member->value.IsNull())) return nullptr;
    if (!(member->value.*is)()) {
        throw TraceFormatError((owner.empty() ? "" : "\"" + std::string(owner) + "\".") + "\"" + name + "\" is not " + expected);
    }
    return &member->value;
}

std::optional<std::uint64_t> Number(const RJ::Value& object, std::string_view owner, char const* name) {
    const RJ::Value* value = Member(object, owner, name, &RJ::Value::IsUint64, "an unsigned integer");
    return value ? std::optional(value->GetUint64()) : std::nullopt;
}

// Absent and null both mean "the host does not know" where `nullable`.
std::optional<std::string> Text(const RJ::Value& object, std::string_view owner, char const* name, bool nullable = false) {
    const RJ::Value* value = Member(object, owner, name, &RJ::Value::IsString, nullable ? "a string or null" : "a string", nullable);
    return value ? std::optional(std::string(value->GetString(), value->GetStringLength())) : std::nullopt;
}

ProcessRecord ReadProcess(const RJ::Value& document, char const* name) {
    const auto member = document.FindMember(name);
    if (member == document.MemberEnd()) throw TraceFormatError("\"" + std::string(name) + "\" is missing");
    const RJ::Value& object = *Member(document, {}, name, &RJ::Value::IsObject, "an object");
    ProcessRecord process;
    process.pid = Number(object, name, "pid").value_or(0);
    process.parentPid = Number(object, name, "ppid").value_or(0);
    process.path = Text(object, name, "path", true);
    process.commandLine = Text(object, name, "command_line", true);
    process.uid = Text(object, name, "uid").value_or("");
    process.userId = Number(object, name, "user_id");
    process.user = Text(object, name, "user").value_or("");
    process.startTime = Number(object, name, "start_time").value_or(0);
    return process;
}

}  // namespace

std::string FormatTraceLine(const TraceEvent& event) {
    RJ::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("kind");
    WriteJsonText(writer, KindNames[static_cast<std::size_t>(event.kind)]);
    writer.Key("process");
    WriteProcess(writer, event.process);
    if (event.kind == EventKind::Create) {
        writer.Key("parent");
        WriteProcess(writer, event.parent.value_or(ProcessRecord{}));
    }
    if (event.kind == EventKind::Shell) {
        writer.Key("command");
        WriteJsonText(writer, event.command);
    }
    if (event.time) {
        writer.Key("time");
        writer.Uint64(*event.time);
    }
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

TraceEvent ParseTraceLine(std::string_view line) {
    RJ::Document document;
    document.Parse<RJ::kParseIterativeFlag>(line.data(), line.size());
    if (document.HasParseError()) {
        throw TraceFormatError(std::string("not JSON: ") + RJ::GetParseError_En(document.GetParseError()) + " (column " +
                               std::to_string(document.GetErrorOffset() + 1) + ")");
    }
    if (!document.IsObject()) throw TraceFormatError("not a JSON object");
    const std::optional<std::string> kindName = Text(document, {}, "kind");
    if (!kindName) throw TraceFormatError("\"kind\" is missing");
    const auto* kind = std::find(std::begin(KindNames), std::end(KindNames), *kindName);
    if (kind == std::end(KindNames)) throw TraceFormatError("unknown \"kind\" (create, exists, terminate or shell)");

    TraceEvent event;
    event.kind = static_cast<EventKind>(kind - std::begin(KindNames));
    event.process = ReadProcess(document, "process");
    if (event.kind == EventKind::Create) event.parent = ReadProcess(document, "parent");
    if (event.kind == EventKind::Shell) {
        std::optional<std::string> command = Text(document, {}, "command");
        if (!command) throw TraceFormatError("\"command\" is missing");
        event.command = std::move(*command);
    }
    event.time = Number(document, {}, "time");
    return event;
}

}  // namespace KALVO::DevHost::Tool
