#pragma once
// Small helpers the programs share for their command lines and their life as a
// supervisor's child.

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>

// A whole decimal number within [low, high]; false (value untouched) otherwise.
inline bool ParseNumber(const char* text, int low, int high, int& value) {
    char* end = nullptr;
    const long parsed = strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || parsed < low || parsed > high) {
        return false;
    }
    value = static_cast<int>(parsed);
    return true;
}

// Asks for SIGTERM when the process that started this one dies, however it dies, so that
// a supervisor killed outright leaves no child holding its ports.
inline void ExitWithParent() {
    const pid_t parent = getppid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
        raise(SIGTERM);  // the parent died before the request took effect
    }
}

// Runs `handler` on SIGINT and SIGTERM, the signals that ask a program to stop.
inline void OnStopSignals(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}
