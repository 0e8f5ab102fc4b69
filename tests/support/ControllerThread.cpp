#include "ControllerThread.h"

#include <future>

#include "ipc/CPollSet.h"

CControllerThread::CControllerThread(CEventDispatcher& dispatcher, const std::string& socketPath, ILog& log)
    : m_ipc(std::make_unique<CIpcEventDispatcher>(dispatcher, socketPath.c_str(), log)), m_dispatcher(dispatcher) {}

CControllerThread::~CControllerThread() { Stop(); }

void CControllerThread::Start() {
    m_stop = false;
    m_thread = std::thread([this] { Loop(); });
}

void CControllerThread::Stop() {
    if (m_thread.joinable()) {
        m_stop = true;
        m_thread.join();
    }
}

void CControllerThread::RunOnController(const std::function<void()>& work) {
    if (!m_thread.joinable()) {
        work();
        return;
    }
    std::promise<void> done;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_work.push_back([&] {
            work();
            done.set_value();
        });
    }
    done.get_future().wait();
}

void CControllerThread::Loop() {
    while (!m_stop) {
        CPollSet poll;
        m_ipc->AddDescriptors(poll);
        if (poll.Wait(5) > 0) {
            while (m_ipc->ProcessEvents()) {
            }
            m_ipc->ProcessReady(poll);
        }
        std::deque<std::function<void()>> work;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            work.swap(m_work);
        }
        for (auto& item : work) {
            item();
        }
        m_dispatcher.Update();
    }
}
