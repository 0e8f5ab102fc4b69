#pragma once
// CPosixFile: an opened device file, the real IPtDevice ("/dev/imxb_pcie_drv", opened by
// the board driver and handed to CPtBusPcie). The path is a system path resolved through
// the runtime root.
//
// Owns its descriptor and closes it when destroyed. Thread contract: as the bus using it.
// Errors: the constructor throws CException "Failed open on %s" (with errno).

#include <string>

#include "IPtDevice.h"

class CPosixFile : public IPtDevice {
public:
    explicit CPosixFile(const std::string& systemPath);
    ~CPosixFile() override;
    CPosixFile(const CPosixFile&) = delete;
    CPosixFile& operator=(const CPosixFile&) = delete;

    int Ioctl(unsigned long command, void* argument) override;
    int GetDescriptor() const { return m_fd; }

private:
    int m_fd;
};
