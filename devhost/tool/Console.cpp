#include "devhost/tool/Console.h"

#include <unistd.h>

#include <string>

namespace KALVO::DevHost::Tool {

LineOutput& ErrorOutput() {
    static LineOutput output(STDERR_FILENO);
    return output;
}

void Note(std::string_view text) { ErrorOutput().Write(std::string("kalvo-devhost: ").append(text)); }

void Warn(std::string_view text) { ErrorOutput().Write(std::string("kalvo-devhost: warning: ").append(text)); }

}  // namespace KALVO::DevHost::Tool
