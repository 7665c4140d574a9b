#include "reporting/Source.h"

#include <utility>

#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"

namespace KALVO::Reporting {

using EIL::Values::Identifier;

Source::Source(std::string&& type, const std::string& componentVersion) noexcept
    : sourceType(std::move(type)), version(componentVersion) {}

Agent::Hosting::ObjectPtr<EIL::Values::ValuesObject> Source::ToValues() const {
    static constexpr Identifier TypeKey("type");
    static constexpr Identifier SourceTypeKey("source_type");
    static constexpr Identifier InfoKey("info");
    static constexpr Identifier VersionKey("version");

    // The results of Set are not checked: a fresh container refuses only when memory runs out,
    // and then the process ends in the value makers anyway.
    auto details = EIL::Values::MakeValues();
    for (const auto& [name, text] : info) (void)Identifier::Set(Identifier(name.c_str()), details.Get(), text);
    (void)Identifier::Set(VersionKey, details.Get(), version);

    auto values = EIL::Values::MakeValues();
    (void)Identifier::Set(TypeKey, values.Get(), "source_info");
    (void)Identifier::Set(SourceTypeKey, values.Get(), sourceType);
    (void)values->Set(InfoKey, EIL::Values::MakeObjectValue(std::move(details)));
    return values;
}

}  // namespace KALVO::Reporting
