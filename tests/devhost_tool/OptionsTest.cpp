// kalvo-devhost's command line: every value the option and fault-rule parsers refuse names
// its fault, and the program turns a refusal into exit status 2 and a configuration that cannot
// be served at start into 1, each with one line on stderr.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "devhost/tool/ToolOptions.h"
#include "tests/devhost_tool/ToolTesting.h"
#include "tests/support/ErrorOf.h"

namespace KALVO::Testing {
namespace {

TEST(ToolOptions, EveryRefusedValueNamesItsFault) {
    const struct {
        std::vector<char const*> arguments;
        char const* message;
    } rows[] = {
        {{}, "no command given: live, record, replay or health (see --help)"},
        {{"replay"}, "trace is required"},
        {{"--log-level", "8", "health"}, "'8' is not error, warn, info, trace or a number 0-7"},
        {{"--state", "", "health"}, "the directory name is empty"},
        {{"--fail", "GetValue", "health"}, "fault rule 'GetValue' is not of the form Operation=code[xN][@M]"},
        {{"--fail", "Nope=1", "health"}, "unknown operation 'Nope' in fault rule; known: "},
        {{"--fail", "GetValue=4294967296", "health"}, "bad code in fault rule 'GetValue=4294967296': expected an"},
        {{"--fail", "GetValue=1x0", "health"}, "bad count in fault rule 'GetValue=1x0': expected a number from 1"},
        {{"--fail", "GetValue=1@2x", "health"}, "bad start in fault rule"},
        {{"live", "--duration", "0"}, "'0' is not a positive number of seconds"},
        {{"live", "--duration", "2s"}, "'2s' is not a positive"},
        {{"record", "--tree", "0"}, "'0' is not a process id"},
        {{"live", "--tree", "1x"}, "'1x' is not a process id"},
        {{"live", "--source", "ebpf"}, "'ebpf' is not bpf, netlink or poll"},
        {{"replay", "t", "--threads", "257"}, "'257' is not a number from 1 to 256"},
        {{"live", "--keys=4097"}, "'4097' is not a number from 1 to 4096"},
    };
    for (const auto& row : rows) {
        std::vector<char const*> argv = {"kalvo-devhost"};
        argv.insert(argv.end(), row.arguments.begin(), row.arguments.end());
        std::string message;
        try {
            ParseToolOptions(static_cast<int>(argv.size()), argv.data());
        } catch (const UsageError& error) {
            message = error.what();
        }
        EXPECT_NE(message.find(row.message), std::string::npos) << message << " expected: " << row.message;
    }
}

TEST(ToolOptions, RefusalsEndTheProgramWithTheirStatusAndOneLine) {
    const std::string config = ScratchPath("array.json");
    WriteFile(config, "[{}]");
    ToolProcess usage({"--fail", "x", "health"});
    EXPECT_EQ(usage.Finish(), 2);
    EXPECT_EQ(usage.Err(),
              "kalvo-devhost: --fail x: fault rule 'x' is not of the form Operation=code[xN][@M] (see --help)\n");
    ToolProcess unusable({"replay", "/dev/null", "--config", config});
    EXPECT_EQ(unusable.Finish(), 1);
    EXPECT_EQ(unusable.Err(), "kalvo-devhost: configuration " + config + " is not a JSON object\n");
}

}  // namespace
}  // namespace KALVO::Testing
