#pragma once
// Helpers for end-to-end tests that run the executables as child processes: start one
// with its standard streams, wait for a condition or an exit, read its output.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "Emulation.h"

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

// Reads until `expected` arrived, the writer closed or the deadline passed; returns
// everything read.
inline std::string ReadUntil(int fd, const std::string& expected, int seconds) {
    const auto deadline = SteadyClock::now() + std::chrono::seconds(seconds);
    std::string got;
    while (got.find(expected) == std::string::npos && SteadyClock::now() < deadline) {
        pollfd watched{fd, POLLIN, 0};
        char chunk[256] = {};
        const ssize_t count = poll(&watched, 1, 50) == 1 ? read(fd, chunk, sizeof chunk) : 0;
        if (count < 0 || (count == 0 && watched.revents != 0)) {
            break;
        }
        got.append(chunk, static_cast<size_t>(count));
    }
    return got;
}
