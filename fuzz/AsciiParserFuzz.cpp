// Arbitrary bytes into the ASCII command parser of one long-lived connection.
//
// One parser, port and link live for the whole run, as a TCP connection's parser does:
// whatever state an input leaves (half a message, a login, "NOT" registrations) is where
// the next input starts. Each input is delivered in two Feed calls split at a position
// derived from the input, so whole and split deliveries are both exercised. The port
// writes to /dev/null; the link answers locally (no sockets): it echoes argument 0, and
// now and then refuses with an error reply carrying parameters 220/221, chosen
// deterministically from the input.
//
// Every message the parser completes is checked for a round trip: its formatted echo
// (Send) is fed to a second parser, which must complete exactly one message whose
// formatted echo is the same text. A mismatch aborts.

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <memory>
#include <string>

#include "RuntimeRoot.h"
#include "ascii/CVeltraneSerialParser.h"
#include "link/CEventLink.h"
#include "log/CLogger.h"
#include "port/CCommPort.h"

namespace {

// A link that answers on the spot. Its answers depend on a seed set per input and on the
// number of exchanges since, so a run is repeatable from its inputs.
class CLocalLink : public CEventLink {
public:
    CLocalLink(ILog& log, const char* name) : CEventLink(log, name) {}

    void Reseed(uint32_t seed) {
        m_seed = seed;
        m_exchanges = 0;
    }

    EError SendCommand(int, CIpcMessage& command, CIpcMessage& reply, unsigned int) override {
        const EError error = NextResult();
        reply = Answer(command, error);
        return error;
    }

    EError SendRequest(int, CIpcMessage& request, std::list<CIpcMessage>& replies, unsigned int) override {
        request.SetFlags(static_cast<uint16_t>(request.GetFlags() | MSG_FLAG_REQUEST));
        const EError error = NextResult();
        replies.clear();
        if (error != ERR_COMM_TIMEOUT) {  // a controller that does not answer sends nothing
            replies.push_back(Answer(request, error));
        }
        return error;
    }

private:
    // About one exchange in four fails.
    EError NextResult() {
        const unsigned shift = (m_exchanges++ * 3u) % 30u;
        switch ((m_seed >> shift) & 7u) {
        case 0: return ERR_INVALID_VALUE;
        case 1: return (m_seed & 0x80000000u) ? ERR_CONTROL_NOT_FOUND : ERR_COMM_TIMEOUT;
        default: return ERR_NONE;
        }
    }

    CIpcMessage Answer(const CIpcMessage& request, EError error) const {
        CIpcMessage reply(request);
        reply.MakeReply(0);
        if (error != ERR_NONE) {
            reply.AddArg(CIpcMessage::kErrorCodeParm, static_cast<int>(error));
            // An empty text makes the parser fall back to its own error text.
            reply.AddArg(CIpcMessage::kErrorTextParm, (m_seed & 0x40000000u) ? "" : "Refused by the fuzz link");
            return reply;
        }
        std::string text;
        if (!request.GetArg(0, text)) {
            reply.AddArg(0, 50);
            return reply;
        }
        unsigned char modifier = 0;
        request.GetModifier(0, modifier);
        if (request.IsNumberArg(0)) {
            EParmFlags flags = PARM_NUMBER;
            int value = 0;
            request.GetArgFlags(0, flags);
            request.GetArg(0, value);
            reply.AddArg(0, value, flags, modifier);
        } else {
            reply.AddArg(0, text, modifier);
        }
        return reply;
    }

    uint32_t m_seed = 0;
    unsigned m_exchanges = 0;
};

// The parser under test, reaching every complete message before it is handled. With a
// checker, each message's echo is re-read by the checker and must come out the same.
class CCheckedParser : public CVeltraneSerialParser {
public:
    CCheckedParser(CEventLink* link, CCommPort* port, ILog& log, CCheckedParser* checker)
        : CVeltraneSerialParser(link, nullptr, port, log), m_checker(checker) {}

    int GetCompleted() const { return m_completed; }
    const std::string& GetLastEcho() const { return m_lastEcho; }

protected:
    bool RxdPreProcessMsg(CIpcMessage& message) override {
        ++m_completed;
        Send(0, &message);
        m_lastEcho = GetTransmitText();
        if (m_checker) {
            CheckRoundTrip();
        }
        return CVeltraneSerialParser::RxdPreProcessMsg(message);
    }

private:
    void CheckRoundTrip() const {
        const int before = m_checker->GetCompleted();
        const EParseResult result =
            m_checker->Feed(reinterpret_cast<const unsigned char*>(m_lastEcho.data()), m_lastEcho.size());
        if (result != PARSE_COMPLETE || m_checker->GetCompleted() != before + 1 ||
            m_checker->GetLastEcho() != m_lastEcho) {
            fprintf(stderr, "round trip failed: result %d, %d messages, echo [%s], read back as [%s]\n",
                    static_cast<int>(result), m_checker->GetCompleted() - before, m_lastEcho.c_str(),
                    m_checker->GetLastEcho().c_str());
            abort();
        }
    }

    CCheckedParser* m_checker;
    int m_completed = 0;
    std::string m_lastEcho;
};

CCommPort* NullPort(const char* name) {
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        abort();
    }
    return new CCommPort(PORT_ETHERNET, fd, name);
}

// Everything one run keeps; the links' sockets live in a private runtime root.
struct SFixture {
    SFixture() {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/ascii-fuzz-XXXXXX";
        if (!mkdtemp(&pattern[0])) {
            abort();
        }
        root = pattern;
        NRuntimeRoot::SetRoot(root);
        std::filesystem::create_directories(NRuntimeRoot::Path("/var/run/ui"));
        checkerLink = std::make_unique<CLocalLink>(log, "fuzz_checker");
        link = std::make_unique<CLocalLink>(log, "fuzz");
        checkerPort.reset(NullPort("checker"));
        port.reset(NullPort("fuzz"));
        checker = std::make_unique<CCheckedParser>(checkerLink.get(), checkerPort.get(), log, nullptr);
        parser = std::make_unique<CCheckedParser>(link.get(), port.get(), log, checker.get());
    }
    ~SFixture() {
        parser.reset();
        checker.reset();
        link.reset();
        checkerLink.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }

    std::string root;
    CLogger log;  // no sinks: nothing is written
    std::unique_ptr<CLocalLink> checkerLink;
    std::unique_ptr<CLocalLink> link;
    std::unique_ptr<CCommPort> checkerPort;
    std::unique_ptr<CCommPort> port;
    std::unique_ptr<CCheckedParser> checker;
    std::unique_ptr<CCheckedParser> parser;
};

uint32_t Hash(const uint8_t* data, size_t size) {
    uint32_t hash = 2166136261u;
    for (size_t i = 0; i < size; ++i) {
        hash = (hash ^ data[i]) * 16777619u;
    }
    return hash;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static SFixture fixture;
    const uint32_t hash = Hash(data, size);
    fixture.link->Reseed(hash);
    fixture.checkerLink->Reseed(hash ^ 0x5bd1e995u);
    // The projector's own address is class-wide and may change while connections live.
    CVeltraneSerialParser::UpdateAddress((hash & 0x100u) ? 5 : 0);

    const size_t split = hash % (size + 1);
    fixture.parser->Feed(data, split);
    fixture.parser->Feed(data + split, size - split);
    return 0;
}
