#include "CCepParser.h"

#include <algorithm>
#include <cstring>

namespace LibFusion {

namespace {

class CLock {
public:
    explicit CLock(CMutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~CLock() { m_mutex.unlock(); }
    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;

private:
    CMutex& m_mutex;
};

}  // namespace

CCepParser::CCepParser(uint32_t bufferSize, ILog* log) : m_capacity(bufferSize), m_log(log) {
    m_buffer.reserve(bufferSize);
}

uint32_t CCepParser::addData(const uint8_t* bytes, uint32_t count) {
    CLock lock(m_mutex);
    const uint32_t taken = std::min<uint32_t>(count, m_capacity - static_cast<uint32_t>(m_buffer.size()));
    m_buffer.insert(m_buffer.end(), bytes, bytes + taken);
    return taken;
}

uint32_t CCepParser::addData(const char* bytes, uint32_t count) {
    return addData(reinterpret_cast<const uint8_t*>(bytes), count);
}

bool CCepParser::findMsg(const std::vector<uint8_t>& buffer, uint32_t& index) {
    for (size_t i = 0; i + 4 <= buffer.size(); ++i) {
        if (memcmp(buffer.data() + i, CCepMessage::kStartMarker, 4) == 0) {
            index = static_cast<uint32_t>(i);
            return true;
        }
    }
    return false;
}

std::unique_ptr<CCepMessage> CCepParser::getCepMsg() {
    CLock lock(m_mutex);
    uint32_t start = 0;
    while (findMsg(m_buffer, start)) {
        m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(start));
        auto message = std::make_unique<CCepMessage>();
        uint32_t consumed = 0;
        const uint32_t held = static_cast<uint32_t>(m_buffer.size());
        if (message->fromBytes(m_buffer.data(), held, consumed, false)) {
            m_buffer.erase(m_buffer.begin(), m_buffer.begin() + static_cast<std::ptrdiff_t>(consumed));
            return message;
        }
        const uint16_t error = message->getDecodingError();
        const bool hopeless = error == DECODE_BAD_HEADER ? held > CCepMessage::kHeaderSize
                                                         : consumed != 0 && (consumed <= held || consumed > m_capacity);
        if (!hopeless) {
            return nullptr;
        }
        if (m_log != nullptr) {
            m_log->LogWarning("Light-source link: skipped a frame that cannot be decoded (error %u, version byte %u)",
                              static_cast<unsigned int>(error), static_cast<unsigned int>(m_buffer[4]));
        }
        m_buffer.erase(m_buffer.begin(), m_buffer.begin() + 4);
    }
    return nullptr;
}

void CCepParser::Clear() {
    CLock lock(m_mutex);
    m_buffer.clear();
}

uint32_t CCepParser::GetSize() {
    CLock lock(m_mutex);
    return static_cast<uint32_t>(m_buffer.size());
}

}  // namespace LibFusion
