#include "ipc/CIpcMessagePool.h"

CIpcMessage& CIpcMessagePool::Next() {
    if (m_spares.empty()) {
        m_spares.emplace_back();
    }
    return m_spares.front();
}

void CIpcMessagePool::MoveNextTo(std::list<CIpcMessage>& list) {
    Next();
    list.splice(list.end(), m_spares, m_spares.begin());
}

void CIpcMessagePool::Recycle(std::list<CIpcMessage>& list) {
    m_spares.splice(m_spares.end(), list);
    while (m_spares.size() > m_keep) {
        m_spares.pop_back();
    }
}
