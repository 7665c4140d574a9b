// Shows what the sensor reported the way a person reads it: each event as one JSON object,
// and each observation's message template with its observables filled in.
//
// Values received across the boundary are read only through IValues/IValue, exactly as a host
// receives them, and defensively: a value's size and answers are whatever its maker says.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "devhost/ReportingService.h"
#include "devhost/ValidUtf8.h"
#include "eil/values/Identifier.h"

namespace KALVO::DevHost {

// Values larger than this are treated as unreadable rather than allocated.
inline constexpr std::uint64_t MaxValueBytes = 64ull << 20;

// Nesting deeper than this is cut off, so a container that contains itself cannot make the
// host recurse without bound.
inline constexpr std::size_t MaxValuesDepth = 32;

namespace Rendering {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValue;
using EIL::Values::IValues;
using EIL::Values::ValueType;
using Writer = EIL::RJ::Writer<EIL::RJ::StringBuffer>;

// The value's bytes (GetSize, then GetData answering 0 or 55), or nothing when it cannot be read.
inline std::optional<std::string> ReadBytes(const IValue& value) {
    const std::uint64_t size = value.GetSize();
    if (size > MaxValueBytes) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    unsigned long long written = 0;
    const Result::Code code = value.GetData(bytes.data(), bytes.size(), &written);
    if ((code != Result::Success && code != Result::NoBufferSpace) || written > bytes.size()) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(written));
    return bytes;
}

// A type-12 value's number (8 bytes in the machine's byte order), or nothing.
inline std::optional<std::uint64_t> ReadNumber(const IValue& value) {
    if (value.Type() != static_cast<std::uint32_t>(ValueType::UInt64)) return std::nullopt;
    const std::optional<std::string> bytes = ReadBytes(value);
    if (!bytes || bytes->size() != sizeof(std::uint64_t)) return std::nullopt;
    std::uint64_t number = 0;
    std::memcpy(&number, bytes->data(), sizeof number);
    return number;
}

// The entries of a container in index order, up to the first that cannot be fetched; those
// whose key (a name for a string key, an id for a number key) cannot be read are left out.
// The value may be null.
struct Entry {
    std::optional<std::string> name;
    std::uint64_t id = 0;
    ObjectPtr<IValue> value;
};
inline std::vector<Entry> ReadEntries(IValues& values) {
    std::vector<Entry> entries;
    const std::uint64_t count = values.Count();
    // The count is the container's word, so only a plausible part of it is reserved.
    entries.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(count, 64)));
    for (std::uint64_t index = 0; index < count; ++index) {
        ObjectPtr<IValue> value;
        ObjectPtr<IValue> key;
        if (values.GetByIndex(static_cast<unsigned long>(index), value, &key) != Result::Success) break;
        if (!key) continue;
        if (key->Type() == static_cast<std::uint32_t>(ValueType::String)) {
            if (std::optional<std::string> name = ReadBytes(*key))
                entries.push_back(Entry{std::move(name), 0, std::move(value)});
        } else if (const std::optional<std::uint64_t> id = ReadNumber(*key)) {
            entries.push_back(Entry{std::nullopt, *id, std::move(value)});
        }
    }
    return entries;
}

inline void WriteContainer(Writer& writer, IValues* values, std::size_t depth);

// The text shown for a value that cannot be read as its type says.
inline std::string Unreadable(std::uint32_t type, IValue& value) {
    return fmt::format("<type {}, {} bytes>", type, value.GetSize());
}

inline void WriteValue(Writer& writer, IValue* value, std::size_t depth) {
    if (!value) {
        writer.Null();
        return;
    }
    const std::uint32_t type = value->Type();
    if (type == static_cast<std::uint32_t>(ValueType::Object)) {
        // The container an object value stands for, or null.
        ObjectPtr<IValues> inner;
        Agent::Hosting::QueryInterface(value, inner);
        if (inner && depth + 1 >= MaxValuesDepth) {
            WriteJsonText(writer, "\xE2\x80\xA6");  // "…": nested too deep to show
        } else {
            WriteContainer(writer, inner.Get(), depth + 1);
        }
    } else if (type == static_cast<std::uint32_t>(ValueType::UInt64)) {
        const std::optional<std::uint64_t> number = ReadNumber(*value);
        if (number) {
            writer.Uint64(*number);
        } else {
            WriteJsonText(writer, Unreadable(type, *value));
        }
    } else if (type == static_cast<std::uint32_t>(ValueType::String)) {
        if (const std::optional<std::string> bytes = ReadBytes(*value)) {
            WriteJsonText(writer, *bytes);
        } else {
            WriteJsonText(writer, Unreadable(type, *value));
        }
    } else {
        WriteJsonText(writer, Unreadable(type, *value));
    }
}

// An object's key: the entry's name, else its id in decimal.
inline void WriteKey(Writer& writer, const Entry& entry) {
    if (entry.name) {
        WriteJsonText(writer, *entry.name);
    } else {
        WriteJsonText(writer, std::to_string(entry.id));
    }
}

// A container, or null for none.
inline void WriteContainer(Writer& writer, IValues* values, std::size_t depth) {
    if (!values) {
        writer.Null();
        return;
    }
    const std::vector<Entry> entries = ReadEntries(*values);
    bool isList = !entries.empty();
    for (std::size_t index = 0; index < entries.size(); ++index)
        isList &= !entries[index].name && entries[index].id == index;
    isList ? writer.StartArray() : writer.StartObject();
    for (const Entry& entry : entries) {
        if (!isList) WriteKey(writer, entry);
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

// How an observable reads in a sentence: its "path" (a process), else its "command" (a shell
// command), else its "command_line", else its "name", else its compact JSON.
inline std::string DescribeObservable(IValues& observable) {
    for (char const* name : {"path", "command", "command_line", "name"}) {
        ObjectPtr<IValue> value;
        std::optional<std::string> text;
        if (observable.Get(EIL::Values::Identifier(name), value) == Result::Success && value &&
            value->Type() == static_cast<std::uint32_t>(ValueType::String) && (text = ReadBytes(*value))) {
            return *text;
        }
    }
    return Render([&](Writer& writer) { WriteContainer(writer, &observable, 0); });
}

// The message with each {name} replaced by how the observable of that name reads (names with
// no observable are left as written).
inline std::string RenderMessage(const ObservationRecord& observation) {
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

}  // namespace Rendering

// A container as JSON: an object keyed by entry names (unnamed keys as their id in decimal),
// or an array when every key is unnamed and the ids are 0, 1, 2, ... (lists built with
// PushBack). Strings (type 2) as JSON strings (bytes that are not UTF-8 shown as U+FFFD),
// numbers (type 12) as numbers, nested containers (type 1) in place (cut off as "…" past
// MaxValuesDepth), null values as null, other types as "<type N, M bytes>". Never throws
// except std::bad_alloc.
inline std::string RenderValuesJson(EIL::Values::IValues& values) {
    return Rendering::Render([&](Rendering::Writer& writer) { Rendering::WriteContainer(writer, &values, 0); });
}

// One event as one line of JSON:
// {"sequence":N,"observations":[{"severity":0,"type_id":"…","message":"…","text":"…",
//  "source":{…},"tags":[…],"observables":{"child":{…},…}}]}
// where "text" is the message with its observables filled in (Rendering::RenderMessage).
inline std::string RenderEventJson(const EventRecord& event) {
    using Rendering::WriteContainer;
    return Rendering::Render([&](Rendering::Writer& writer) {
        writer.StartObject();
        writer.Key("sequence");
        writer.Uint64(event.sequence);
        writer.Key("observations");
        writer.StartArray();
        for (const ObservationRecord& observation : event.observations) {
            writer.StartObject();
            writer.Key("severity");
            writer.Uint(observation.severity);
            writer.Key("type_id");
            WriteJsonText(writer, observation.typeId);
            writer.Key("message");
            WriteJsonText(writer, observation.message);
            writer.Key("text");
            WriteJsonText(writer, Rendering::RenderMessage(observation));
            writer.Key("source");
            WriteContainer(writer, observation.source.Get(), 0);
            writer.Key("tags");
            WriteContainer(writer, observation.tags.Get(), 0);
            writer.Key("observables");
            writer.StartObject();
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
