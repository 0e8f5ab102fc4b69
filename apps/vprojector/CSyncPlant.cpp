#include "CSyncPlant.h"

#include "CException.h"
#include "jsonrpc/ForwardMethod.h"

// The formatter's FPGA v-sync counter through the packet bus.
class CSyncPlant::CVsync : public IVsyncCounter {
public:
    explicit CVsync(CFormatterPlant& formatter) : m_formatter(formatter) {}
    uint16_t ReadVsyncCount() override {
        return static_cast<uint16_t>(m_formatter.GetBus().WaitOnVsync(0, 0, false));
    }
    uint16_t WaitVsyncs(unsigned int count, unsigned int timeoutMs) override {
        const unsigned int start = m_formatter.GetBus().WaitOnVsync(count, timeoutMs, true);
        return static_cast<uint16_t>(start + count);
    }
    double GetFrameRateHz() const override { return m_formatter.GetVsyncHz(); }

private:
    CFormatterPlant& m_formatter;
};

CSyncPlant::CSyncPlant(const SConfig& config, CJsonRpcServer& server, CControllerLoop& loop,
                       CFormatterPlant* formatter, ILog& log)
    : m_loop(loop), m_vsync(formatter ? std::make_unique<CVsync>(*formatter) : nullptr),
      m_group(config.group, config.port, config.interface, log), m_unicast(config.unicastPort) {
    try {
        m_group.Initialize();
        try {
            m_group.GetServer().SetReceiveBufferSize(kReceiveBufferBytes);
        } catch (const CException& e) {
            log.LogWarning("%s; the system's default stays", e.GetMessage().c_str());
        }
        log.Log("Serving the JSON-RPC multicast group %s:%u on %s", config.group.c_str(), config.port,
                config.interface.c_str());
    } catch (const CException& e) {
        log.LogError("%s: the projector works without its group", e.GetMessage().c_str());
    }
    m_unicast.UnicastBind("");
    m_sync = std::make_unique<CC4jSync>(server, m_vsync.get(), m_group.IsInitialized() ? &m_group : nullptr);
    for (Json::Rpc::UdpServer* udp : {static_cast<Json::Rpc::UdpServer*>(&m_group.GetServer()),
                                      static_cast<Json::Rpc::UdpServer*>(&m_unicast)}) {
        Forward(*udp, server);
    }
    m_sync->PublishTo(m_group.GetServer(), true);
    m_sync->PublishTo(m_unicast, false);
    m_loop.AddSource(m_group);
    m_loop.AddSource(m_unicast);
    m_loop.AddSource(*m_sync);
}

CSyncPlant::~CSyncPlant() {
    m_loop.RemoveSource(*m_sync);
    m_loop.RemoveSource(m_unicast);
    m_loop.RemoveSource(m_group);
}

bool CSyncPlant::IsServedOverUdp(const std::string& method) {
    return method == "getModules" || method == "system:getFamily" || method.rfind("control:", 0) == 0;
}

void CSyncPlant::Forward(Json::Rpc::UdpServer& udp, CJsonRpcServer& server) {
    for (const std::string& method : server.GetHandler().GetDescriptions().getMemberNames()) {
        if (IsServedOverUdp(method)) {
            udp.AddMethod(new Json::Rpc::ForwardMethod(server.GetHandler(), method));
        }
    }
}
