#include "ascii/CVeltraneSerialHandler.h"

#include "ascii/CVeltraneSerialParser.h"
#include "link/CEventLink.h"
#include "text/NAsciiCodeUtils.h"

CVeltraneSerialHandler::CVeltraneSerialHandler(ILog& log, CEventLink* link, CSecurityManager* security,
                                               const IMonotonicClock* clock)
    : CSerialHandler(log), m_security(security), m_clock(clock) {
    SetEventLink(link);
}

CVeltraneSerialHandler::~CVeltraneSerialHandler() = default;

std::unique_ptr<CSerialParser> CVeltraneSerialHandler::MakeParser(CCommPort& port) {
    auto parser = std::make_unique<CVeltraneSerialParser>(GetLink(), this, &port, GetLog(), m_clock);
    parser->SetSecurityManager(m_security);
    return parser;
}

void CVeltraneSerialHandler::OnParserRemoved(CSerialParser& parser) {
    auto* ascii = dynamic_cast<CVeltraneSerialParser*>(&parser);
    CEventLink* link = GetLink();
    if (!ascii || !link) {
        return;
    }
    for (const std::string& code : ascii->GetNotifyCodes()) {
        const auto parts = NAsciiCodeUtils::SplitCode(code);
        link->NotifyUnregister(parts.first, parts.second == "!!!!" ? "" : parts.second, link->GetNotifySocketName(),
                               false);
    }
}

void CVeltraneSerialHandler::OnRoutingChanged(int routing) {
    if (routing < ROUTING_SERIAL_PAIR || routing > ROUTING_ALL) {
        GetLog().LogError("Invalid routing mode %d", routing);
        return;
    }
    CVeltraneSerialParser::UpdateRouting(static_cast<ENetworkRouting>(routing));
}

void CVeltraneSerialHandler::OnAddressChanged(int address) {
    if (address < 0 || address > 1023) {
        GetLog().LogError("Invalid projector address %d", address);
        return;
    }
    CVeltraneSerialParser::UpdateAddress(address);
}
