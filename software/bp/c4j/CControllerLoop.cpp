#include "CControllerLoop.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "CException.h"
#include "ipc/CPollSet.h"

CControllerLoop::CControllerLoop(CEventDispatcher& dispatcher, CIpcEventDispatcher& ipc, CJsonRpcServer* json)
    : m_dispatcher(dispatcher), m_ipc(ipc), m_json(json) {
    if (pipe2(m_wakePipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        THROW_ERRNO_EXCEPTION("Cannot create the controller loop's wake-up pipe");
    }
}

CControllerLoop::~CControllerLoop() {
    close(m_wakePipe[0]);
    close(m_wakePipe[1]);
}

void CControllerLoop::Wake() {
    const char wake = 1;
    [[maybe_unused]] const ssize_t written = write(m_wakePipe[1], &wake, 1);
}

void CControllerLoop::Stop() {
    m_stop = true;
    Wake();
}

void CControllerLoop::Post(std::function<void()> work) {
    {
        std::lock_guard<std::mutex> lock(m_workMutex);
        m_work.push_back(std::move(work));
    }
    Wake();
}

void CControllerLoop::RemoveSource(ILoopSource& source) {
    m_sources.erase(std::remove(m_sources.begin(), m_sources.end(), &source), m_sources.end());
}

void CControllerLoop::Run() {
    while (!m_stop) {
        RunOnce(kMaxWaitMs);
    }
}

void CControllerLoop::RunOnce(int timeoutMs) {
    m_poll.Clear();
    m_ipc.AddDescriptors(m_poll);
    m_poll.Add(m_wakePipe[0], true, false);
    // Messages already received in a batch leave the socket looking empty.
    const bool received = m_ipc.HasReceivedMessages();
    int wait = received ? 0 : std::min(timeoutMs, kMaxWaitMs);
    if (m_json) {
        m_json->AddDescriptors(m_poll);
        const int due = m_json->GetNextDeadlineMs();
        if (due >= 0) {
            wait = std::min(wait, due);
        }
    }
    for (ILoopSource* source : m_sources) {
        source->AddDescriptors(m_poll);
        const int due = source->GetNextDeadlineMs();
        if (due >= 0) {
            wait = std::min(wait, due);
        }
    }
    m_poll.Wait(wait);

    if (m_poll.IsReadable(m_wakePipe[0])) {
        char drained[64];
        while (read(m_wakePipe[0], drained, sizeof drained) > 0) {
        }
    }
    if (received || m_poll.IsReadable(m_ipc.GetDescriptor())) {
        // A bounded batch per turn, so a flood of IPC messages cannot starve the JSON clients.
        for (int handled = 0; handled < kMaxIpcPerTurn && m_ipc.ProcessEvents(); ++handled) {
        }
    }
    m_ipc.ProcessReady(m_poll);
    if (m_json) {
        m_json->ProcessReady(m_poll);
    }
    for (ILoopSource* source : m_sources) {
        source->ProcessReady(m_poll);
    }
    {
        std::lock_guard<std::mutex> lock(m_workMutex);
        m_running.swap(m_work);
    }
    for (auto& item : m_running) {
        item();
    }
    m_running.clear();
    m_dispatcher.Update();
    if (m_json) {
        m_json->Update();
    }
}
