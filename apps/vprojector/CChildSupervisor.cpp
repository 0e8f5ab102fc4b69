#include "CChildSupervisor.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "RuntimeRoot.h"

extern char** environ;

CChildSupervisor::CChildSupervisor(ILog& log, const IMonotonicClock& clock, const std::string& program,
                                   const std::vector<std::string>& arguments)
    : m_log(log), m_clock(clock), m_program(program), m_arguments(arguments), m_restart(clock, kRestartDelayMs) {}

bool CChildSupervisor::Watch(pid_t pid, unsigned int seconds, const std::string& name) {
    if (!m_running || pid != m_pid || seconds == 0) {
        return false;
    }
    m_watched = true;
    m_watchName = name;
    m_watchSince = m_clock.GetCount();
    m_watchMs = uint64_t{seconds} * 1000;
    return true;
}

CChildSupervisor::~CChildSupervisor() { Stop(); }

bool CChildSupervisor::Start() {
    std::vector<char*> argv;
    const char* emulator = getenv(kEmulatorVariable);
    if (emulator && *emulator) {
        argv.push_back(const_cast<char*>(emulator));
    }
    argv.push_back(const_cast<char*>(m_program.c_str()));
    for (std::string& argument : m_arguments) {
        argv.push_back(&argument[0]);
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
    if (error != 0) {
        m_log.LogError("Cannot start %s: %s", m_program.c_str(), strerror(error));
        m_restart.Restart();
        return false;
    }
    m_pid = pid;
    m_running = true;
    m_log.LogFYI(FYI_STARTUP, "Started %s (pid %d)", m_program.c_str(), static_cast<int>(pid));
    return true;
}

void CChildSupervisor::Update() {
    if (m_running) {
        int status = 0;
        const pid_t done = waitpid(m_pid, &status, WNOHANG);
        if (done != m_pid) {
            if (m_watched && m_clock.CountsToMs(m_watchSince, m_clock.GetCount()) > m_watchMs) {
                m_log.LogError("Process %s (%d) missed its keep-alive; restarting it", m_watchName.c_str(),
                               static_cast<int>(m_pid));
                m_watched = false;
                kill(m_pid, SIGKILL);
            }
            return;
        }
        m_running = false;
        m_watched = false;
        m_log.LogError("%s (pid %d) ended (%s %d); restarting it", m_program.c_str(), static_cast<int>(m_pid),
                       WIFSIGNALED(status) ? "signal" : "status",
                       WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        RemoveLeftovers(m_pid);
        m_restart.Restart();
        return;
    }
    if (m_pid != 0 && m_restart.IsExpired()) {
        Start();
    }
}

void CChildSupervisor::Stop() {
    if (!m_running) {
        m_pid = 0;  // no restarts after a stop
        return;
    }
    kill(m_pid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStopWaitMs);
    int status = 0;
    while (waitpid(m_pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            m_log.LogError("%s did not stop; killing it", m_program.c_str());
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    RemoveLeftovers(m_pid);
    m_running = false;
    m_pid = 0;
}

void CChildSupervisor::RemoveLeftovers(pid_t pid) {
    const std::string prefix = std::to_string(pid) + "_";
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(NRuntimeRoot::Path("/var/run/ui"), error)) {
        if (entry.path().filename().string().rfind(prefix, 0) == 0) {
            std::filesystem::remove(entry.path(), error);
        }
    }
}
