// The observation type ids of the monitor's reports (GUID texts a host's consumers key on).
// One definition, read by the handlers that report and by any tool that tells the reports
// apart, so the two cannot disagree.
#pragma once

namespace KALVO::SecurityMonitor {

// A process created another one.
inline constexpr char const* ProcessCreatedTypeId = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";
// A process was already running when the monitor started.
inline constexpr char const* ProcessExistsTypeId = "6e7f8c8a-9213-4020-aeb1-d8d608c63d78";
// A shell received a command line.
inline constexpr char const* ShellCommandTypeId = "79c21e2a-95c3-48b3-9af6-c5327b6b5c73";
// The type of the command observable attached to a shell command's report.
inline constexpr char const* CommandObservableTypeId = "d2828e56-c9a9-43a0-91b6-96eccca93a5e";

}  // namespace KALVO::SecurityMonitor
