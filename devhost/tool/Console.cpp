#include "devhost/tool/Console.h"

#include <unistd.h>

#include <atomic>
#include <streambuf>
#include <string>

namespace KALVO::DevHost::Tool {

namespace {

constexpr std::string_view Program = "kalvo-devhost: ";
constexpr std::string_view ClearLine = "\r\x1b[K";

std::atomic<bool> g_progressShown{false};

// Collects characters until a line feed, then hands the line over in one write.
class LineBuffer final : public std::streambuf {
protected:
    int_type overflow(int_type c) override {
        if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
        const char ch = traits_type::to_char_type(c);
        if (ch == '\n') {
            Emit();
        } else {
            m_line.push_back(ch);
        }
        return c;
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        for (std::streamsize index = 0; index < count; ++index) overflow(traits_type::to_int_type(text[index]));
        return count;
    }

private:
    void Emit() {
        if (g_progressShown.load(std::memory_order_relaxed)) m_line.insert(0, ClearLine);
        ErrorOutput().Write(m_line);
        m_line.clear();
    }

    std::string m_line;
};

void WriteNote(std::string_view kind, std::string_view text) {
    std::string line;
    if (g_progressShown.load(std::memory_order_relaxed)) line.append(ClearLine);
    line.append(Program).append(kind).append(text);
    ErrorOutput().Write(line);
}

}  // namespace

LineOutput& ErrorOutput() {
    static LineOutput output(STDERR_FILENO);
    return output;
}

void Note(std::string_view text) { WriteNote({}, text); }

void Warn(std::string_view text) { WriteNote("warning: ", text); }

std::ostream& LogStream() {
    static LineBuffer buffer;
    static std::ostream stream(&buffer);
    return stream;
}

void ShowProgress(std::string_view text) {
    std::string line(ClearLine);
    line.append(text);
    g_progressShown.store(!text.empty(), std::memory_order_relaxed);
    // Without a line feed, so the next progress replaces it.
    ErrorOutput().WriteRaw(line);
}

}  // namespace KALVO::DevHost::Tool
