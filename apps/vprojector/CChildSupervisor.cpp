#include "CChildSupervisor.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "RuntimeRoot.h"

extern char** environ;

CChildSupervisor::CChildSupervisor(ILog& log, const IMonotonicClock& clock, const std::string& program,
                                   const std::vector<std::string>& arguments)
    : m_log(log), m_clock(clock), m_program(program), m_arguments(arguments), m_restart(clock, kRestartDelayMs),
      m_check(clock, kCheckIntervalMs) {}

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
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    int pipeEnds[2] = {-1, -1};
    if (m_watchReady && pipe2(pipeEnds, O_CLOEXEC) == 0) {
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
        fcntl(pipeEnds[0], F_SETFL, O_NONBLOCK);
    }
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (pipeEnds[1] >= 0) {
        close(pipeEnds[1]);
    }
    CloseOutput();
    if (error != 0) {
        if (pipeEnds[0] >= 0) {
            close(pipeEnds[0]);
        }
        m_log.LogError("Cannot start %s: %s", m_program.c_str(), strerror(error));
        m_restart.Restart();
        return false;
    }
    m_output = pipeEnds[0];
    m_pid = pid;
    m_running = true;
    m_log.LogFYI(FYI_STARTUP, "Started %s (pid %d)", m_program.c_str(), static_cast<int>(pid));
    return true;
}

void CChildSupervisor::Update() {
    if (!m_check.IsExpired()) {
        return;
    }
    m_check.Restart();
    ReadOutput();
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
        ReadOutput();
        CloseOutput();
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
    CloseOutput();
    m_running = false;
    m_pid = 0;
}

void CChildSupervisor::ReadOutput() {
    char chunk[512];
    ssize_t got = 0;
    while (m_output >= 0 && (got = read(m_output, chunk, sizeof chunk)) > 0) {
        m_partial.append(chunk, static_cast<size_t>(got));
        for (size_t end = m_partial.find('\n'); end != std::string::npos; end = m_partial.find('\n')) {
            const std::string line = m_partial.substr(0, end);
            m_partial.erase(0, end + 1);
            if (line.rfind("ready", 0) == 0) {
                m_ready = true;
            } else {
                printf("%s\n", line.c_str());
                fflush(stdout);
            }
        }
        if (m_partial.size() > 4096) {  // a child that never ends its line is passed on as it is
            fwrite(m_partial.data(), 1, m_partial.size(), stdout);
            m_partial.clear();
        }
    }
}

void CChildSupervisor::CloseOutput() {
    if (m_output >= 0) {
        close(m_output);
        m_output = -1;
    }
    m_partial.clear();
    m_ready = false;
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
