#include "devhost/EventRenderer.h"

#include <fmt/format.h>

#include "devhost/ValidUtf8.h"
#include "devhost/ValueReading.h"

namespace KALVO::DevHost {

namespace {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValue;
using EIL::Values::IValues;
using EIL::Values::ValueType;
using Writer = EIL::RJ::Writer<EIL::RJ::StringBuffer>;

void WriteContainer(Writer& writer, IValues* values, std::size_t depth);

void WriteValue(Writer& writer, IValue* value, std::size_t depth) {
    const std::uint32_t type = value ? value->Type() : 0;
    std::optional<std::uint64_t> number;
    std::optional<std::string> bytes;
    if (!value) {
        writer.Null();
    } else if (type == static_cast<std::uint32_t>(ValueType::Object)) {
        const ObjectPtr<IValues> inner = OpenContainer(*value);
        if (inner && depth + 1 >= MaxValuesDepth) {
            WriteJsonText(writer, "\xE2\x80\xA6");  // "…": nested too deep to show
        } else {
            WriteContainer(writer, inner.Get(), depth + 1);
        }
    } else if (type == static_cast<std::uint32_t>(ValueType::UInt64) && (number = ReadNumber(*value))) {
        writer.Uint64(*number);
    } else if (type == static_cast<std::uint32_t>(ValueType::String) && (bytes = ReadBytes(*value))) {
        WriteJsonText(writer, *bytes);
    } else {
        WriteJsonText(writer, fmt::format("<type {}, {} bytes>", type, value->GetSize()));
    }
}

// A container, or null for none.
void WriteContainer(Writer& writer, IValues* values, std::size_t depth) {
    if (!values) {
        writer.Null();
        return;
    }
    const std::vector<Entry> entries = ReadEntries(*values);
    bool isList = !entries.empty();
    for (std::size_t index = 0; index < entries.size(); ++index) isList &= !entries[index].name && entries[index].id == index;
    isList ? writer.StartArray() : writer.StartObject();
    for (const Entry& entry : entries) {
        if (!isList) WriteJsonText(writer, entry.name ? *entry.name : std::to_string(entry.id));
        WriteValue(writer, entry.value.Get(), depth);
    }
    isList ? writer.EndArray() : writer.EndObject();
}

template <class Write>
std::string Render(Write write) {
    EIL::RJ::StringBuffer buffer;
    Writer writer(buffer);
    write(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string DescribeObservable(IValues& observable) {
    for (char const* name : {"path", "command", "command_line", "name"}) {
        ObjectPtr<IValue> value;
        std::optional<std::string> text;
        if (observable.Get(EIL::Values::Identifier(name), value) == Result::Success && value &&
            value->Type() == static_cast<std::uint32_t>(ValueType::String) && (text = ReadBytes(*value))) {
            return *text;
        }
    }
    return RenderValuesJson(observable);
}

std::string RenderMessage(const ObservationRecord& observation) {
    const std::string_view message = observation.message;
    std::string text;
    std::size_t position = 0;
    while (position < message.size()) {
        const std::size_t open = message.find('{', position);
        const std::size_t close = open == std::string_view::npos ? open : message.find('}', open + 1);
        if (close == std::string_view::npos) break;
        text.append(message.substr(position, open - position));
        if (IValues* observable = observation.Find(message.substr(open + 1, close - open - 1))) {
            text.append(DescribeObservable(*observable));
        } else {
            text.append(message.substr(open, close - open + 1));
        }
        position = close + 1;
    }
    return text.append(message.substr(position));
}

}  // namespace

std::string RenderValuesJson(IValues& values) {
    return Render([&](Writer& writer) { WriteContainer(writer, &values, 0); });
}

std::string RenderEventJson(const EventRecord& event) {
    return Render([&](Writer& writer) {
        writer.StartObject();
        writer.Key("sequence"), writer.Uint64(event.sequence);
        writer.Key("observations"), writer.StartArray();
        for (const ObservationRecord& observation : event.observations) {
            writer.StartObject();
            writer.Key("severity"), writer.Uint(observation.severity);
            writer.Key("type_id"), WriteJsonText(writer, observation.typeId);
            writer.Key("message"), WriteJsonText(writer, observation.message);
            writer.Key("text"), WriteJsonText(writer, RenderMessage(observation));
            writer.Key("source"), WriteContainer(writer, observation.source.Get(), 0);
            writer.Key("tags"), WriteContainer(writer, observation.tags.Get(), 0);
            writer.Key("observables"), writer.StartObject();
            for (const ObservableRecord& observable : observation.observables) {
                WriteJsonText(writer, observable.name);
                WriteContainer(writer, observable.values.Get(), 0);
            }
            writer.EndObject();
            writer.EndObject();
        }
        writer.EndArray();
        writer.EndObject();
    });
}

}  // namespace KALVO::DevHost
