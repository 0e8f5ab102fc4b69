#pragma once
// CSyncPlant: the virtual projector in a group of projectors: the JSON-RPC multicast
// group and the unicast server, both serving the "sync" module, "getModules",
// "system:getFamily" and every "control:" method (so that one datagram sets a control on
// every projector of the group), and the v-sync the sync module schedules on: the
// simulated FPGA's counter, genlocked to the host's monotonic clock so that every
// virtual projector on one host counts the same v-syncs.
//
// A group that cannot be joined (no such interface, no multicast route) is logged and
// left out; the unicast server and the sync module go on without it. The group socket
// asks for a receive buffer of kReceiveBufferBytes, so that a burst of group requests
// is not dropped while the loop is busy (forcing it needs CAP_NET_ADMIN; without, the
// system's default stays and that is logged).
//
// Lifetime: server, loop, formatter plant and log outlive it; it adds itself to the loop
// and removes itself when destroyed. Thread contract: the controller's loop.

#include <memory>
#include <string>

#include "CC4jSync.h"
#include "CFormatterPlant.h"
#include "CJsonRpcMulticast.h"
#include "CUnicastUdp.h"

class CSyncPlant {
public:
    static constexpr int kReceiveBufferBytes = 256 * 1024;

    struct SConfig {
        std::string group = "239.192.0.1";
        unsigned short port = 3004;
        std::string interface = "lo";
        unsigned short unicastPort = 3005;  // 0: any free port
    };

    CSyncPlant(const SConfig& config, CJsonRpcServer& server, CControllerLoop& loop, CFormatterPlant* formatter,
               ILog& log);
    ~CSyncPlant();

    unsigned short GetUnicastPort() const { return m_unicast.GetPort(); }
    bool HasGroup() const { return m_group.IsInitialized(); }

private:
    // The methods the UDP servers serve, forwarded to the main server's table.
    static bool IsServedOverUdp(const std::string& method);
    void Forward(Json::Rpc::UdpServer& udp, CJsonRpcServer& server);

    class CVsync;
    CControllerLoop& m_loop;
    std::unique_ptr<CVsync> m_vsync;
    CJsonRpcMulticast m_group;
    CUnicastUdpServer m_unicast;
    std::unique_ptr<CC4jSync> m_sync;
};
