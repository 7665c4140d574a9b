// The configuration reader over an arbitrary configuration text served by the stand-in host's
// configuration service, queried with arbitrary JSON Pointer keys. Input: the text, then a NUL,
// then keys separated by newlines. Every query either answers or throws its documented
// std::runtime_error; the typed tests agree with the getters; the host gets its text back.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "configuration/Configuration.h"
#include "devhost/Host.h"
#include "fuzz/FuzzCheck.h"

namespace {

using KALVO::Configuration::Configuration;

KALVO::DevHost::Host& TheHost() {
    static KALVO::DevHost::Host host;
    return host;
}

template <class Get>
void Agrees(bool test, Get get, const char* what) {
    try {
        get();
        KALVO_FUZZ_CHECK(test, what);
    } catch (const std::runtime_error&) {
        KALVO_FUZZ_CHECK(!test, what);
    }
}

void Query(const Configuration& configuration, const std::string& key) {
    const bool exists = configuration.Exists(key);
    KALVO_FUZZ_CHECK(exists == (configuration.Data(key) != nullptr), "Exists is Data not null");
    if (!exists) {
        try {
            (void)configuration.IsString(key);
            KALVO_FUZZ_CHECK(false, "a type test of a missing key throws");
        } catch (const std::runtime_error&) {
        }
        return;
    }
    Agrees(configuration.IsBool(key), [&] { (void)configuration.GetBool(key); }, "IsBool agrees with GetBool");
    Agrees(configuration.IsInt32(key), [&] { (void)configuration.GetInt32(key); }, "IsInt32 agrees with GetInt32");
    Agrees(configuration.IsUInt32(key), [&] { (void)configuration.GetUInt32(key); }, "IsUInt32 agrees with GetUInt32");
    Agrees(configuration.IsInt64(key), [&] { (void)configuration.GetInt64(key); }, "IsInt64 agrees with GetInt64");
    Agrees(configuration.IsUInt64(key), [&] { (void)configuration.GetUInt64(key); }, "IsUInt64 agrees with GetUInt64");
    Agrees(configuration.IsDouble(key), [&] { (void)configuration.GetDouble(key); }, "IsDouble agrees with GetDouble");
    Agrees(configuration.IsString(key), [&] { (void)configuration.GetString(key); }, "IsString agrees with GetString");
    const bool object = configuration.IsObject(key);
    Agrees(object, [&] { (void)configuration.GetObject(key); }, "IsObject agrees with GetObject");
    Agrees(object, [&] { (void)configuration.GetMembers(key); }, "IsObject agrees with GetMembers");
    if (object) {
        for (const std::string& name : configuration.GetMembers(key)) (void)configuration.HasMember(key, name);
    }
    (void)configuration.IsNull(key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = input.find('\0');
    const std::string_view text = input.substr(0, split);
    std::vector<std::string> keys = {"", "/securitymonitor/process_tree_collapse_regex", "/securitymonitor/process_tree_report_limit"};
    if (split != std::string_view::npos) {
        std::string_view rest = input.substr(split + 1);
        while (!rest.empty()) {
            const std::size_t end = rest.find('\n');
            keys.emplace_back(rest.substr(0, end));
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }

    KALVO::DevHost::Host& host = TheHost();
    host.Config().SetText(std::string(text));
    try {
        const Configuration configuration(host.Root());
        for (const std::string& key : keys) Query(configuration, key);
        (void)configuration.GetRevision();
        (void)configuration.GetVersion();
    } catch (const std::runtime_error&) {
        // "The schema of the data is not valid and cannot be used"
    }
    KALVO_FUZZ_CHECK(host.Config().OutstandingTexts() == 0, "the configuration text is given back");
    return 0;
}
