// Arbitrary bytes into a PJLink session, as a TCP connection delivers them.
//
// The first byte picks an open session or one guarded by a password (whose digest the
// input may or may not carry). The rest is fed to two sessions, one whole and one split at
// a position derived from the input: both must answer the same bytes, since framing may
// not depend on how the bytes arrive. Every answer must be a whole line of the protocol
// ("PJLINK ERRA" or "%" class command "=" data, CR-ended), no more answers than lines, and
// every command reaching the backend must be well formed: class 1 or 2, four upper-case
// letters or digits, a printable parameter that fits the line limit. A breach aborts.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "CPjlinkSession.h"

namespace {

bool IsPrintable(char c) { return c >= 0x20 && c <= 0x7E; }

// Answers from the command's own bytes, so answers vary with the input; checks what
// the session hands over.
class CCheckingCommands : public IPjlinkCommands {
public:
    std::string Execute(char pjlinkClass, const std::string& command, const std::string& parameter) override {
        if ((pjlinkClass != '1' && pjlinkClass != '2') || command.size() != 4 ||
            parameter.size() > CPjlinkSession::kMaxLine - 8) {
            abort();
        }
        for (char c : command) {
            if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))) {
                abort();
            }
        }
        for (char c : parameter) {
            if (!IsPrintable(c)) {
                abort();
            }
        }
        return parameter == "?" ? command : "OK";
    }
};

void CheckAnswers(const std::string& out, size_t lines) {
    size_t answers = 0;
    size_t start = 0;
    while (start < out.size()) {
        const size_t end = out.find('\r', start);
        if (end == std::string::npos) {
            abort();  // a partial answer
        }
        const std::string line = out.substr(start, end - start);
        const bool refusal = line == "PJLINK ERRA";
        if (!refusal && (line.size() < 8 || line[0] != '%' || line[6] != '=')) {
            abort();
        }
        ++answers;
        start = end + 1;
    }
    if (answers > lines) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool guarded = (data[0] & 1) != 0;
    const std::string password = guarded ? "password" : "";
    const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t cut = input.empty() ? 0 : data[0] % (input.size() + 1);

    CCheckingCommands commands;
    CPjlinkSession whole(commands, password, "a572f60c", 0);
    CPjlinkSession split(commands, password, "a572f60c", 0);
    const std::string wholeOut = whole.Receive(input.data(), input.size(), 1);
    std::string splitOut = split.Receive(input.data(), cut, 1);
    splitOut += split.Receive(input.data() + cut, input.size() - cut, 2);
    if (wholeOut != splitOut || whole.IsClosed() != split.IsClosed()) {
        abort();
    }
    size_t lines = 0;
    for (char c : input) {
        lines += c == '\r' ? 1 : 0;
    }
    CheckAnswers(wholeOut, lines);
    return 0;
}
