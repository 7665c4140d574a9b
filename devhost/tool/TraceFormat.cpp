#include "devhost/tool/TraceFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>

#include "devhost/ValidUtf8.h"
#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

namespace {

namespace RJ = EIL::RJ;
using Writer = RJ::Writer<RJ::StringBuffer>;

void WriteProcess(Writer& writer, const ProcessRecord& process) {
    writer.StartObject();
    writer.Key("pid");
    writer.Uint64(process.pid);
    writer.Key("ppid");
    writer.Uint64(process.parentPid);
    if (process.path) {
        writer.Key("path");
        WriteJsonText(writer, *process.path);
    }
    if (process.commandLine) {
        writer.Key("command_line");
        WriteJsonText(writer, *process.commandLine);
    }
    writer.Key("uid");
    WriteJsonText(writer, process.uid);
    if (process.userId) {
        writer.Key("user_id");
        writer.Uint64(*process.userId);
    }
    if (!process.user.empty()) {
        writer.Key("user");
        WriteJsonText(writer, process.user);
    }
    if (process.startTime != 0) {
        writer.Key("start_time");
        writer.Uint64(process.startTime);
    }
    writer.EndObject();
}

std::string Quoted(std::string_view owner, std::string_view name) {
    std::string text;
    if (!owner.empty()) text.append("\"").append(owner).append("\".");
    return text.append("\"").append(name).append("\"");
}

const RJ::Value* Member(const RJ::Value& object, char const* name) {
    const auto member = object.FindMember(name);
    return member == object.MemberEnd() ? nullptr : &member->value;
}

std::string Text(const RJ::Value& value) { return std::string(value.GetString(), value.GetStringLength()); }

std::optional<std::uint64_t> Number(const RJ::Value& object, std::string_view owner, char const* name) {
    const RJ::Value* value = Member(object, name);
    if (!value) return std::nullopt;
    if (!value->IsUint64()) throw TraceFormatError(Quoted(owner, name) + " is not an unsigned integer");
    return value->GetUint64();
}

// Absent and null both mean "the host does not know".
std::optional<std::string> OptionalText(const RJ::Value& object, std::string_view owner, char const* name) {
    const RJ::Value* value = Member(object, name);
    if (!value || value->IsNull()) return std::nullopt;
    if (!value->IsString()) throw TraceFormatError(Quoted(owner, name) + " is not a string or null");
    return Text(*value);
}

std::string PlainText(const RJ::Value& object, std::string_view owner, char const* name) {
    const RJ::Value* value = Member(object, name);
    if (!value) return {};
    if (!value->IsString()) throw TraceFormatError(Quoted(owner, name) + " is not a string");
    return Text(*value);
}

ProcessRecord ReadProcess(const RJ::Value& document, char const* name) {
    const RJ::Value* object = Member(document, name);
    if (!object) throw TraceFormatError(Quoted({}, name) + " is missing");
    if (!object->IsObject()) throw TraceFormatError(Quoted({}, name) + " is not an object");
    ProcessRecord process;
    process.pid = Number(*object, name, "pid").value_or(0);
    process.parentPid = Number(*object, name, "ppid").value_or(0);
    process.path = OptionalText(*object, name, "path");
    process.commandLine = OptionalText(*object, name, "command_line");
    process.uid = PlainText(*object, name, "uid");
    process.userId = Number(*object, name, "user_id");
    process.user = PlainText(*object, name, "user");
    process.startTime = Number(*object, name, "start_time").value_or(0);
    return process;
}

}  // namespace

std::string FormatTraceLine(const TraceEvent& event) {
    RJ::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("kind");
    const std::string_view kind = EventKindName(event.kind);
    writer.String(kind.data(), static_cast<RJ::SizeType>(kind.size()));
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

    const RJ::Value* kindValue = Member(document, "kind");
    if (!kindValue) throw TraceFormatError("\"kind\" is missing");
    if (!kindValue->IsString()) throw TraceFormatError("\"kind\" is not a string");
    const std::optional<EventKind> kind = EventKindFromName(Text(*kindValue));
    if (!kind) throw TraceFormatError("unknown \"kind\" (create, exists, terminate or shell)");

    TraceEvent event;
    event.kind = *kind;
    event.process = ReadProcess(document, "process");
    if (event.kind == EventKind::Create) event.parent = ReadProcess(document, "parent");
    if (event.kind == EventKind::Shell) {
        const RJ::Value* command = Member(document, "command");
        if (!command) throw TraceFormatError("\"command\" is missing");
        if (!command->IsString()) throw TraceFormatError("\"command\" is not a string");
        event.command = Text(*command);
    }
    event.time = Number(document, {}, "time");
    return event;
}

}  // namespace KALVO::DevHost::Tool
