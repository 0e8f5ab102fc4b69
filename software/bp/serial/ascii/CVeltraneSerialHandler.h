#pragma once
// CVeltraneSerialHandler: the serial handler of the ASCII command protocol: one
// CVeltraneSerialParser per port, all sharing the handler's event link and security
// manager. A removed parser's notification registrations ("NOT") are taken back from
// the controller.
//
// Lifetime: link, security manager and clock outlive the handler. Thread contract: that
// of CSerialHandler.

#include "ascii/CSerialHandler.h"
#include "time/IMonotonicClock.h"

class CSecurityManager;

class CVeltraneSerialHandler : public CSerialHandler {
public:
    // security may be null (no user can log in); clock null = the parsers' default.
    CVeltraneSerialHandler(ILog& log, CEventLink* link, CSecurityManager* security,
                           const IMonotonicClock* clock = nullptr);
    ~CVeltraneSerialHandler() override;

protected:
    std::unique_ptr<CSerialParser> MakeParser(CCommPort& port) override;
    void OnParserRemoved(CSerialParser& parser) override;
    void OnRoutingChanged(int routing) override;
    void OnAddressChanged(int address) override;

private:
    CSecurityManager* m_security;
    const IMonotonicClock* m_clock;
};
