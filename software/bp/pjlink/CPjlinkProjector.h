#pragma once
// CPjlinkProjector: the PJLink commands of both classes carried out on the projector's
// controls and status groups through an event link, as the mapping says. A change goes
// the road every front-end's change goes (access level, limits, refusal with revert), so
// a refused change answers an error and leaves the control as it was.
//
//   class 1   POWR INPT AVMT ERST LAMP INST NAME INF1 INF2 INFO CLSS
//   class 2   the above with the class 2 input numbers, and SNUM SVER INNM IRES RRES FILT
//             RLMP RFIL SVOL MVOL FREZ
//
// Answers to a change: "OK"; ERR2 for a parameter outside the command's set or a value
// the control refuses as invalid; ERR3 for a change refused now (power on while the lamps
// cool down, a disabled entry, too low an access level, a controller that does not
// answer in time); ERR4 for any other failure. A command whose control or text the
// mapping leaves out answers ERR1, as an undefined command.
// A class 1 client sees only class 1 inputs: INST lists them, INPT refuses the others
// with ERR2 and a query while one of them is selected answers ERR3.
// ERST: each digit is the highest alarm severity among the category's status groups:
// severity 1 is a warning ("1"), 2 and 3 are errors ("2").
// LAMP: "<hours> <on>" per lamp position, hours capped at 99999; a lamp is on while the
// power state is on or warming up. LAMP and RLMP answer ERR4 when a configured lamp has no
// controls (its lamp memory could not be read).
// SVOL and MVOL step the control by one; at its limit the step answers OK and changes
// nothing.
//
// Lifetime: the link outlives it. Thread contract: the link's thread.

#include <string>

#include "IPjlinkCommands.h"
#include "SPjlinkMapping.h"
#include "link/CEventLink.h"

class CPjlinkProjector : public IPjlinkCommands {
public:
    // Every exchange waits at most this long, so that an answer leaves within the two
    // seconds a PJLink client waits.
    static constexpr unsigned int kTimeoutMs = 1500;

    CPjlinkProjector(CEventLink& link, const SPjlinkMapping& mapping);

    std::string Execute(char pjlinkClass, const std::string& command, const std::string& parameter) override;

    // The data of the class 2 status notifications, as the queries answer them.
    std::string PowerStatus() { return Execute('2', "POWR", "?"); }
    std::string InputStatus() { return Execute('2', "INPT", "?"); }
    std::string ErrorStatus() { return Execute('2', "ERST", "?"); }

private:
    std::string Power(const std::string& parameter);
    std::string Input(char pjlinkClass, const std::string& parameter);
    std::string Mute(const std::string& parameter);
    std::string Errors();
    std::string Lamps();
    std::string Inputs(char pjlinkClass);
    std::string InputName(const std::string& parameter);
    std::string Step(const std::string& code, const std::string& parameter);
    std::string OnOff(const std::string& code, const std::string& parameter);
    std::string ReadNumber(const std::string& code);
    std::string ReadText(const std::string& code);
    std::string LampTypes();

    // Runs one exchange on the code and subcode of "XXX+YYYY"; an exchange that throws
    // is a failure.
    template <typename TExchange>
    EError Guarded(const std::string& joined, TExchange exchange);
    EError Get(const std::string& code, int& value);
    EError GetText(const std::string& code, std::string& text);
    EError Set(const std::string& code, int value);
    static std::string ErrorAnswer(EError error);
    static std::string LampAnswer(EError error);

    CEventLink& m_link;
    SPjlinkMapping m_mapping;
};
