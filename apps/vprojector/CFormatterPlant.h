#pragma once
// CFormatterPlant: the virtual projector's formatter hardware: a simulated FPGA with the
// formatter blocks on ports 48 and 56, reached through the real packet bus (CPtBusPcie),
// and the DMD sequence loader on top. It is the hardware behind the control "OFR" (the
// output frame rate in hundredths of a hertz): a new rate loads and applies the sequence
// for it; a rate without a fitting sequence is refused, and the old rate and sequence
// stay (the loader has logged why). A high-dynamic-range plant loads the prime formatter
// on port 48 and the pre-modulating one on port 56 (CDmdSequenceHdr).
//
// The sequence archive is read from "<root>/usr/lib/firmware/seq/<name>.zip"; when the
// root has none, the one shipped with the build (shippedDirectory/<name>.zip) is
// installed there first, and that is logged.
//
// Lifetime: clock and log outlive it. Thread contract: the controller's loop.

#include <memory>
#include <string>

#include "CDmdSequence.h"
#include "CPtBusPcie.h"
#include "CSimFpgaDevice.h"
#include "control/IControlProxy.h"

class CFormatterPlant : public IControlProxy, private IBitSequenceSet {
public:
    static constexpr const char* kRateCode = "OFR";
    static constexpr unsigned int kVsyncHz = 60;

    CFormatterPlant(const std::string& sequenceName, bool highDynamicRange, const std::string& shippedDirectory,
                    const IMonotonicClock& clock, ILog& log);

    // Loads and applies the sequence for a rate in hundredths of a hertz; false when the
    // rate has none (or its archive cannot be read).
    bool ApplyControlValue(const std::string& code, int value) override;
    bool ApplyControlText(const std::string& code, const std::string& text) override;

    // A register of the simulated FPGA itself (not a shadow); false for a port without a
    // block or an offset outside its registers.
    bool ReadRegister(unsigned int port, unsigned int offset, uint32_t& value) const;
    const CDmdSequence& GetSequence() const { return *m_sequence; }
    // The packet bus to the simulated FPGA, whose v-sync counter is genlocked to the
    // host's monotonic clock (every virtual projector on the host counts alike).
    CPtBusPcie& GetBus() { return m_bus; }
    double GetVsyncHz() const { return kVsyncHz; }

private:
    std::string GetSequenceName() const override { return m_name; }
    bool Is3D() const override { return false; }
    void InstallShippedArchive(const std::string& shippedDirectory);

    std::string m_name;
    ILog& m_log;
    CSimFpgaDevice m_device;
    CPtBusPcie m_bus;
    std::unique_ptr<CDmdSequence> m_sequence;
};
