#pragma once
// CNetwork: the projector's IPv4 settings as the control plane keeps them: either a
// static address or DHCP with fall-back settings for when no server answers. They are
// stored in "/etc/network/address.json" (under the runtime root, replaced atomically),
// which the projector's network service reads when it (re)starts the interface; applying
// them is that service's job, never this class's, so the host's network is not touched.
//
// File: {"mode": "static" | "dhcp", "ip", "netmask", "gateway"} (a DHCP file carries its
// fall-backs there, empty when none were given).
//
// A static setting is refused (false, nothing written) unless: the address and netmask
// are dotted quads, the address is not 0.0.0.0, a loopback, multicast or the limited
// broadcast address, the netmask is contiguous and not 0, the address is neither the
// network nor the broadcast address of its subnet, and the gateway is 0.0.0.0 (none) or
// another host of the same subnet. DHCP fall-backs follow the same rules when an address
// is given; without one DHCP runs with none.
//
// Thread contract: the owner's thread. Errors: false for refused settings or a file that
// cannot be written (logged by the caller); nothing throws.

#include <string>

class CNetwork {
public:
    static constexpr const char* kSettingsFile = "/etc/network/address.json";

    struct SSettings {
        bool dhcp = false;
        std::string address;
        std::string netmask;
        std::string gateway;
    };

    virtual ~CNetwork() = default;
    virtual bool SetStaticAddress(const std::string& ip, const std::string& netmask, const std::string& gateway);
    virtual bool StartDhcp(const std::string& ip, const std::string& netmask, const std::string& gateway);

    static bool IsValidStatic(const std::string& ip, const std::string& netmask, const std::string& gateway);

private:
    static bool Store(const SSettings& settings);
};
