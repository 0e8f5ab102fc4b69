#pragma once
// SPjlinkMapping: how the PJLink commands reach this projector's controls, status groups
// and texts, read from the "pjlink" member of the projector's configuration (and the
// lamp positions from its "lamps" member). Every member has a default, so an empty
// object maps the shipped virtual projector:
//
//   "port"              TCP port of the control protocol and UDP port of search (4352)
//   "noticePort"        UDP port a controller hears on: search answers, link-up and
//                       status notices go there (4352, the standard's)
//   "passwordFile"      path under the runtime root ("/etc/projector/pjlink.password");
//                       no file: no authentication
//   "accessLevel"       the access level changes are made with (2, operator)
//   "power", "powerState"     "POW" (0 off, 1 on) and "PWS" (0 standby, 1 on, 2 cooling,
//                       3 warming up; "" reads the power control alone)
//   "input"             {"code": "INP", "inputs": [{"number": "31", "value": 0, "name":
//                       "HDMI"}, ...]}: PJLink input numbers (type 1..6, then 1..9 or
//                       A..Z) to the control's list values
//   "videoMute", "audioMute", "freeze"   boolean-like controls, 1 = muted / frozen
//                       ("SHU", "AMU", "FRZ")
//   "name"              text control of the projector name ("NAM")
//   "speakerVolume", "microphoneVolume"  integer controls stepped by SVOL and MVOL
//                       ("VOL", "MIC")
//   "filterHours"       integer control of the filter's hours ("FLH")
//   "inputResolution"   text control holding the input signal's "<w>x<h>", "-" for no
//                       signal ("IRS")
//   "lampHours", "lampType"   per-lamp controls, "<code>+LP<position>" ("LHR", "LTY")
//   "errors"            {"fan", "lamp", "temperature", "cover", "filter", "other"}:
//                       arrays of status group names (none, ["LAMP"], none, none, none,
//                       ["SYST", "LASER"])
//   "manufacturer", "product", "information", "serialNumber", "softwareVersion",
//   "recommendedResolution", "filterModel"   fixed texts, at most 32 bytes each
//   "interface"         network interface whose MAC address search answers ("eth0")
//   "linkUpAddress"     where the link-up notice goes at start ("255.255.255.255")
//
// A control is given as its code, "XXX", or code and subcode, "XXX+YYYY"; "" leaves its
// commands unsupported (ERR1), as does an empty text for RRES and RFIL.
// Thread contract: a plain value.

#include <json/json.h>

#include <cstdint>
#include <string>
#include <vector>

struct SPjlinkMapping {
    struct SInput {
        std::string number;  // two characters, e.g. "31"
        int value = 0;
        std::string name;
    };
    static constexpr size_t kMaxText = 32;
    static constexpr const char* kErrorCategories[6] = {"fan", "lamp", "temperature", "cover", "filter", "other"};

    uint16_t port = 4352;
    uint16_t noticePort = 4352;
    std::string passwordFile = "/etc/projector/pjlink.password";
    int accessLevel = 2;
    std::string power = "POW";
    std::string powerState = "PWS";
    std::string input = "INP";
    std::vector<SInput> inputs;
    std::string videoMute = "SHU";
    std::string audioMute = "AMU";
    std::string freeze = "FRZ";
    std::string name = "NAM";
    std::string speakerVolume = "VOL";
    std::string microphoneVolume = "MIC";
    std::string filterHours = "FLH";
    std::string inputResolution = "IRS";
    std::string lampHours = "LHR";
    std::string lampType = "LTY";
    std::vector<std::string> lampPositions;
    std::vector<std::string> errorGroups[6];
    std::string manufacturer;
    std::string product;
    std::string information;
    std::string serialNumber;
    std::string softwareVersion;
    std::string recommendedResolution;
    std::string filterModel;
    std::string interface = "eth0";
    std::string linkUpAddress = "255.255.255.255";

    // The mapping of a configuration's "pjlink" and "lamps" members (either may be null).
    // Throws CException naming the member and what it must be.
    static SPjlinkMapping FromJson(const Json::Value& pjlink, const Json::Value& lamps);

    // The control the power state is read from: the power state's, or else the power's.
    const std::string& PowerStateCode() const { return powerState.empty() ? power : powerState; }
    // "XXX+YYYY" -> "XXX", "YYYY"; "XXX" -> "XXX", "".
    static void SplitCode(const std::string& joined, std::string& code, std::string& subcode);

    // True for an input number a class 1 client may use: type 1..5, then 1..9.
    static bool IsClass1Input(const std::string& number);
    const SInput* FindInput(const std::string& number) const;
    const SInput* FindInputValue(int value) const;
};
