#include "BenchController.h"

#include <filesystem>

#include "BenchSockets.h"
#include "RuntimeRoot.h"

CBenchController::CBenchController() : m_dispatcher(m_log) {
    NRuntimeRoot::SetRoot(SocketDir());
    std::filesystem::create_directories(NRuntimeRoot::Path("/var/run/ui"));
    m_ipc = std::make_unique<CIpcEventDispatcher>(
        m_dispatcher, NRuntimeRoot::Path("/var/run/ui/main_controller.socket").c_str(), m_log);
}

CBenchController::~CBenchController() {
    if (m_loop) {
        m_loop->Stop();
    }
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_loop.reset();
    m_ipc.reset();
    m_controls.clear();
}

void CBenchController::AddInteger(const std::string& code, int min, int max, int value) {
    m_controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, m_dispatcher, m_proxy, code, false, min, max, value,
                                                    ACCESS_OPERATOR, 0, 0, 0, false));
}

void CBenchController::Serve() {
    m_loop = std::make_unique<CControllerLoop>(m_dispatcher, *m_ipc, nullptr);
    m_thread = std::thread([this] {
        PinToOneCpu();
        m_loop->Run();
    });
}

double CBenchController::GetCpuSeconds() { return ThreadCpuSeconds(m_thread); }
