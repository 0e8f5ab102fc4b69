#pragma once
// SPty: a pseudo-terminal whose slave is linked under a test's runtime root in place of a
// serial device.

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <string>

#include "TempRoot.h"

struct SPty {
    SPty(const CTempRoot& root, const std::string& device) {
        EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
        char name[64] = {};
        EXPECT_EQ(ptsname_r(master, name, sizeof name), 0);
        root.MakeDir("/dev");
        unlink(root.Path(device).c_str());
        EXPECT_EQ(symlink(name, root.Path(device).c_str()), 0);
    }
    ~SPty() {
        CloseMaster();
        close(slave);
    }
    SPty(const SPty&) = delete;
    SPty& operator=(const SPty&) = delete;
    // The device goes away: the slave side hangs up.
    void CloseMaster() {
        if (master >= 0) {
            close(master);
        }
        master = -1;
    }

    int master = -1;
    int slave = -1;
};
