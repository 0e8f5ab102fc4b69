#include "net/CNetwork.h"

#include <arpa/inet.h>
#include <json/json.h>

#include <filesystem>

#include "NFileUtil.h"
#include "RuntimeRoot.h"

namespace {

bool Parse(const std::string& text, uint32_t& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, text.c_str(), &parsed) != 1) {
        return false;
    }
    address = ntohl(parsed.s_addr);
    return true;
}

}  // namespace

bool CNetwork::IsValidStatic(const std::string& ip, const std::string& netmask, const std::string& gateway) {
    uint32_t address = 0;
    uint32_t mask = 0;
    uint32_t router = 0;
    if (!Parse(ip, address) || !Parse(netmask, mask) || !Parse(gateway, router)) {
        return false;
    }
    const bool contiguous = mask != 0 && ((~mask + 1) & ~mask) == 0;
    const uint8_t first = static_cast<uint8_t>(address >> 24);
    if (!contiguous || address == 0 || first == 127 || first >= 224) {
        return false;
    }
    const uint32_t host = address & ~mask;
    if (mask != 0xFFFFFFFF && mask != 0xFFFFFFFE && (host == 0 || host == ~mask)) {
        return false;
    }
    if (router == 0) {
        return true;
    }
    const uint32_t routerHost = router & ~mask;
    return (router & mask) == (address & mask) && router != address && routerHost != 0 && routerHost != ~mask;
}

bool CNetwork::SetStaticAddress(const std::string& ip, const std::string& netmask, const std::string& gateway) {
    return IsValidStatic(ip, netmask, gateway) && Store({false, ip, netmask, gateway});
}

bool CNetwork::StartDhcp(const std::string& ip, const std::string& netmask, const std::string& gateway) {
    if (!ip.empty() && !IsValidStatic(ip, netmask, gateway)) {
        return false;
    }
    return Store({true, ip, ip.empty() ? "" : netmask, ip.empty() ? "" : gateway});
}

bool CNetwork::Store(const SSettings& settings) {
    Json::Value file;
    file["mode"] = settings.dhcp ? "dhcp" : "static";
    file["ip"] = settings.address;
    file["netmask"] = settings.netmask;
    file["gateway"] = settings.gateway;
    const std::string path = NRuntimeRoot::Path(kSettingsFile);
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    return NFileUtil::WriteFileAtomically(path, Json::writeString(Json::StreamWriterBuilder(), file) + "\n", 0644);
}
