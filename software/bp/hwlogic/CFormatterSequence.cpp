#include "CFormatterSequence.h"

#include "CException.h"

CFormatterSequence::CFormatterSequence(IPtBus& bus, unsigned char port)
    : m_posted(port == kPostedPort), m_port(port), m_bank(bus, port, 0, kSequenceAddress + 8),
      m_second(bus, kSecondPort, kOutput, 4), m_mlh1(m_bank, kMlh1Address), m_mlh2(m_bank, kMlh2Address),
      m_sequence(m_bank, kSequenceAddress) {
    m_bank.WriteShadowBits(kSequencer, 1);
    m_bank.WriteShadowBits(kOutput, 0);
}

void CFormatterSequence::Commit(unsigned int offset, uint32_t value, unsigned int shift, uint32_t mask) {
    if (m_posted) {
        m_bank.WriteField(offset, value, shift, mask);
    } else {
        m_bank.WriteFieldWait(offset, value, shift, mask);
    }
}

void CFormatterSequence::Load(CPtAddressedMemoryPort& memory, uint32_t address, const uint32_t* words,
                              unsigned int count) {
    memory.WriteDataAtAddress(address, words, count, m_posted ? 0 : kLoadTimeoutMs);
}

void CFormatterSequence::LoadSequence(const uint32_t* words, unsigned int count, bool low) {
    Load(m_sequence, low ? 0 : kHighSequence, words, count);
}

void CFormatterSequence::LoadMlh1(const uint32_t* words, unsigned int count, bool low) {
    Load(m_mlh1, low ? 0 : kHighMlh1, words, count);
}

void CFormatterSequence::LoadMlh2(const uint32_t* words, unsigned int count, bool low) {
    Load(m_mlh2, low ? 0 : kHighMlh2, words, count);
}

void CFormatterSequence::SetStretch(double stretch) {
    // Checked before the conversion, which is undefined outside the unsigned range.
    if (!(stretch >= 0 && stretch < 65536.0)) {
        THROW_EXCEPTION("Stretch %f out of range", stretch);
    }
    const uint32_t fixed = static_cast<uint32_t>(stretch * 65536.0);
    Commit(kStretch, fixed & 0xFFFF, 0, 0xFFFF);
}

void CFormatterSequence::EnableSequencer(bool on) { Commit(kSequencer, on ? 1 : 0, 0, 1); }

void CFormatterSequence::EnableMlhtBypass(bool on) { Commit(kOutput, on ? 1 : 0, 8, 0x100); }

void CFormatterSequence::Reset(bool sequencer, bool output, bool stretch) {
    if (sequencer) {
        Commit(kSequencer, 1, 0, 0xFFFFFFFF);
    }
    if (output) {
        Commit(kOutput, 0, 0, 0x1FF);
    }
    if (stretch) {
        Commit(kStretch, 0, 0, 0xFFFF);
    }
}

void CFormatterSequence::Apply(bool low, bool mode) {
    // The posted-mode formatter may not answer reads; only the status read is forgiven
    // there, never the write that stops a halted sequencer.
    bool running = true;
    try {
        running = m_bank.ReadField(kStatus, 0, 1) != 0;
    } catch (const CException&) {
        if (!m_posted) {
            throw;
        }
    }
    if (!running) {
        EnableSequencer(false);
    }
    m_bank.WriteShadowBits(kSequencer, low ? 0 : kHighSequence, 16, 0xFFFF0000);
    EnableSequencer(true);
    if (m_port == kSecondPort) {
        m_bank.WriteShadowBits(kOutput, 1, 16, 0x10000);
    }
    const uint32_t outputMode = mode ? 0 : 2;
    Commit(kOutput, outputMode, 0, 0xFF);
    if (m_posted) {
        m_second.WriteShadowBits(0, 1, 16, 0x10000);
        m_second.WriteField(0, outputMode, 0, 0xFF);
    }
}
