#include "CSimFpgaDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "NPtPacket.h"

CSimFpgaDevice::CSimFpgaDevice(const IMonotonicClock& clock, unsigned int vsyncHz)
    : m_clock(clock), m_vsyncHz(vsyncHz), m_lastCount(clock.GetCount()) {}

CSimFpgaPort& CSimFpgaDevice::AddPort(unsigned int port, std::unique_ptr<CSimFpgaPort> block) {
    if (!block) {
        block = std::make_unique<CSimFpgaPort>();
    }
    CSimFpgaPort& added = *block;
    m_ports[port & 0x3F] = std::move(block);
    return added;
}

CSimFpgaPort* CSimFpgaDevice::GetPort(unsigned int port) const {
    const auto it = m_ports.find(port & 0x3F);
    return it == m_ports.end() ? nullptr : it->second.get();
}

void CSimFpgaDevice::SetStaleWords(const std::vector<uint32_t>& words, bool endless) {
    m_stale.assign(words.begin(), words.end());
    m_staleEndless = endless && !words.empty();
}

int CSimFpgaDevice::Ioctl(unsigned long command, void* argument) {
    if (m_hook) {
        m_hook();
    }
    switch (command) {
    case kSendPacket:
        HandlePacket(*static_cast<SPtTransfer*>(argument));
        return 0;
    case kReceivePacket:
        return Receive(*static_cast<SPtTransfer*>(argument));
    case kReadBar1: {
        SPtBar1Register& reg = *static_cast<SPtBar1Register*>(argument);
        reg.value = ReadBar1(reg.offset);
        return 0;
    }
    case kReadVsync:
        *static_cast<uint32_t*>(argument) = ReadVsync();
        return 0;
    default:
        errno = ENOTTY;
        return -1;
    }
}

void CSimFpgaDevice::WriteItems(CSimFpgaPort& block, unsigned int address, const unsigned char* data,
                                unsigned int bytes, bool increment, bool words) {
    const unsigned int step = words ? 4 : 1;
    for (unsigned int i = 0; i + step <= bytes; i += step) {
        const unsigned int at = address + (increment ? i : 0);
        if (words) {
            uint32_t value;
            memcpy(&value, data + i, 4);
            block.Write(at, value);
        } else if (increment) {
            // Bytes of consecutive addresses land in the bytes of their register.
            const unsigned int shift = (at % 4) * 8;
            const uint32_t old = block.Peek(at);
            block.Write(at & ~3u, (old & ~(0xFFu << shift)) | (uint32_t{data[i]} << shift));
        } else {
            block.Write(at, data[i]);
        }
    }
}

std::vector<unsigned char> CSimFpgaDevice::ReadItems(CSimFpgaPort& block, unsigned int address, unsigned int bytes,
                                                     bool increment, bool words) {
    std::vector<unsigned char> payload(bytes, 0);
    const unsigned int step = words ? 4 : 1;
    for (unsigned int i = 0; i < bytes; i += step) {
        const unsigned int at = address + (increment ? i : 0);
        if (words) {
            const uint32_t value = block.Read(at);
            memcpy(payload.data() + i, &value, std::min(4u, bytes - i));
        } else if (increment) {
            payload[i] = static_cast<unsigned char>(block.Peek(at) >> ((at % 4) * 8));
        } else {
            payload[i] = static_cast<unsigned char>(block.Read(at));
        }
    }
    return payload;
}

void CSimFpgaDevice::HandlePacket(const SPtTransfer& transfer) {
    const uint64_t header = transfer.header;
    const unsigned int type = NPtPacket::Type(header);
    if (type != NPtPacket::TYPE_POSTED_WRITE && type != NPtPacket::TYPE_REQUEST) {
        m_generic.push_back(header);
        return;
    }
    CSimFpgaPort* block = GetPort(NPtPacket::Port(header));
    if (!block) {
        return;
    }
    const unsigned int address = NPtPacket::Address(header);
    const bool increment = NPtPacket::Increment(header);
    const unsigned int length = std::min(NPtPacket::Length(header), transfer.length);
    // Word transfers come in whole words; a length that is not a multiple of 4 is bytes.
    const bool words = length % 4 == 0 && NPtPacket::ReplyLength(header) % 4 == 0;
    WriteItems(*block, address, static_cast<const unsigned char*>(transfer.payload), length, increment, words);
    if (type != NPtPacket::TYPE_REQUEST || m_noReply) {
        return;
    }
    const unsigned int replyBytes = NPtPacket::ReplyLength(header);
    SReply reply{NPtPacket::MakeReplyHeader(NPtPacket::Port(header), address, replyBytes, increment) ^ m_replyXor,
                 ReadItems(*block, address, replyBytes, increment, words)};
    m_replies.push_back(std::move(reply));
}

int CSimFpgaDevice::Receive(SPtTransfer& transfer) {
    if (m_replies.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const SReply reply = std::move(m_replies.front());
    m_replies.pop_front();
    transfer.header = reply.header;
    const size_t copied = std::min<size_t>(transfer.length, reply.payload.size());
    if (copied > 0) {
        memcpy(transfer.payload, reply.payload.data(), copied);
    }
    return 0;
}

uint32_t CSimFpgaDevice::ReadBar1(uint32_t offset) {
    if (offset == kBar1Status) {
        return (m_txStuck ? 0 : kStatusTxValid) | (m_stale.empty() ? 0 : kStatusRxData);
    }
    if (offset == kBar1Pop && !m_stale.empty()) {
        const uint32_t word = m_stale.front();
        if (!(m_staleEndless && m_stale.size() == 1)) {
            m_stale.pop_front();
        }
        return word;
    }
    return 0;
}

uint32_t CSimFpgaDevice::ReadVsync() {
    if (m_houseSync) {
        return static_cast<uint32_t>((m_houseSync() / 1000 * m_vsyncHz / 1000000) & 0xFFFF);
    }
    const uint32_t now = m_clock.GetCount();
    m_elapsedCounts += static_cast<uint32_t>(now - m_lastCount);
    m_lastCount = now;
    return static_cast<uint32_t>((m_elapsedCounts * m_vsyncHz / m_clock.GetFrequency()) & 0xFFFF);
}
