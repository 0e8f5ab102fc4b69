#pragma once
// Helpers for end-to-end tests that run the executables as child processes: start one
// with its standard streams (or until it says it is ready), wait for a condition or an exit.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Emulation.h"
#include "LocalSockets.h"

extern char** environ;

using SteadyClock = std::chrono::steady_clock;

// Starts a program with the given standard streams, one of this build's through the
// emulator where the build runs under one (EmulatedCommand) unless `emulated` is false
// (the caller composed the command itself); returns its pid (-1 on failure).
inline pid_t Spawn(std::vector<std::string> arguments, int outFd, const std::string& errFile, bool emulated = true) {
    if (emulated) {
        arguments = EmulatedCommand(arguments);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        pid = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Polls `done` every 10 ms until it holds or the deadline passed.
template <typename Predicate>
bool Eventually(Predicate done, int seconds = 10) {
    const auto deadline = SteadyClock::now() + std::chrono::seconds(seconds);
    while (!done()) {
        if (SteadyClock::now() > deadline) {
            return false;
        }
        usleep(10000);
    }
    return true;
}

// The exit status of a child (128 + signal when killed), or -1 when it had not ended in
// time and has been killed and reaped.
inline int WaitForExit(pid_t pid, int seconds) {
    int status = 0;
    if (!Eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, seconds)) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Starts a program that says on its first line of output that it is ready; returns that
// line ("" when none came within `seconds`) and sets `pid` (-1 when it did not start).
inline std::string SpawnUntilReady(const std::vector<std::string>& arguments, const std::string& errFile, pid_t& pid,
                                   int seconds, bool emulated = true) {
    int out[2];
    pid = -1;
    if (pipe2(out, O_CLOEXEC) != 0) {
        return "";
    }
    pid = Spawn(arguments, out[1], errFile, emulated);
    close(out[1]);
    const std::string line = pid > 0 ? ReadUntil(out[0], "\n", seconds) : "";
    close(out[0]);
    return line;
}

// The end of a child's log file, for failure messages.
inline std::string LogTail(const std::string& file) {
    std::ifstream in(file);
    const std::string log{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return "\n...\n" + log.substr(log.size() > 3000 ? log.size() - 3000 : 0);
}
