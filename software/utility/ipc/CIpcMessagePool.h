#pragma once
// CIpcMessagePool: messages kept for reuse by a loop that receives or answers one message
// after another. A message taken from the pool keeps the storage its arguments, reply
// address and wire form grew before, so once the pool is warmed up a message handed out
// costs no allocation; the list nodes travel by splicing, never copied.
//
// Next() is the spare that MoveNextTo hands out next (made when the pool is empty); its
// content is whatever it held before and is to be overwritten (received into, Reset).
// Recycle takes back the messages of a list that is done with, up to the pool's size.
//
// Thread contract: one thread uses a pool at a time. Lists handed in and out use the
// standard allocator, as every std::list<CIpcMessage> does.

#include <cstddef>
#include <list>

#include "ipc/CIpcMessage.h"

class CIpcMessagePool {
public:
    explicit CIpcMessagePool(size_t keep) : m_keep(keep) {}

    CIpcMessage& Next();
    // Moves Next() to the end of list.
    void MoveNextTo(std::list<CIpcMessage>& list);
    // Takes every message of list (which ends empty); at most the pool's size stay.
    void Recycle(std::list<CIpcMessage>& list);

private:
    size_t m_keep;
    std::list<CIpcMessage> m_spares;
};
