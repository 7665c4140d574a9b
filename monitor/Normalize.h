// Normalisation of the texts that go into the monitor's repeat-count keys: container paths,
// hashes, long numbers and temporary paths are replaced by fixed placeholders so that runs of
// the same process tree or shell command count as one. The results are never reported.
//
// Hand-written linear scanners, not std::regex: the library engines recurse once per matched
// character and overflow a host thread's 512 KiB stack on a long digit run or /tmp path.
#pragma once

#include <cstddef>
#include <string>

namespace KALVO::SecurityMonitor {

// Replaces a leading "/proc/<digits>/root" by "container:", e.g. "/proc/4711/root/usr/bin/curl"
// becomes "container:/usr/bin/curl"; anything else is left as it is. Any thread; never throws:
// a failure is logged and leaves `path` unchanged.
void NormalizeProcessPath(std::string& path) noexcept;
// The same for the part of `text` from offset `from` on; the characters before it are kept.
// Lets a key be normalised while it is built, without a string of its own per part.
void NormalizeProcessPath(std::string& text, std::size_t from) noexcept;

// Rewrites `commandLine` as these replacements applied one after the other, each on the result
// of the one before, every non-overlapping match from left to right:
//   1. a whole word of exactly 64 hexadecimal digits  -> "<sha256>"
//   2. a whole word of exactly 32 hexadecimal digits  -> "<md5>"
//   3. every run of 4 or more decimal digits          -> "<number>"
//   4. "/tmp/" and the characters after it up to white space or "<" (at least one) -> "<tmp>"
// A word is a run of ASCII letters, digits and "_"; white space is " \t\n\v\f\r"; bytes of 0x80
// and above are neither. The result equals that of std::regex_replace with the ECMAScript
// expressions "\b[a-fA-F0-9]{64}\b", "\b[a-fA-F0-9]{32}\b", "\d{4,}" and "\/tmp\/[^\s<]+" in
// the classic locale. Any thread; linear time; allocates only when something is replaced;
// never throws: a failure is logged and leaves `commandLine` unchanged.
void NormalizeCommandline(std::string& commandLine) noexcept;
// The same for the part of `text` from offset `from` on; the characters before it are kept.
void NormalizeCommandline(std::string& text, std::size_t from) noexcept;

}  // namespace KALVO::SecurityMonitor
