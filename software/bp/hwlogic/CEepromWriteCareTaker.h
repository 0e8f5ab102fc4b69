#pragma once
// CEepromWriteCareTaker: keeps the lamp memory's pages in RAM and spares the tag: reads
// come from RAM, writes are staged there, and Flush writes only the pages whose bytes
// changed, all in one backed-up transaction (CBackupHandler), so that a flush either
// lands whole or, after a power cut, is undone at the next start. Pages are the tag's
// own (aligned on tag addresses), clipped to the window.
//
// The window is the first pageCount x pageSize bytes of the area (the lamp memory header
// says how many pages its data use), clipped to the area.
//
// Lifetime: area and backup handler outlive it. Thread contract: the owner's thread.
// Errors: Read and Write outside the window, tag and backup faults throw CException. A
// flush that fails drops the staged bytes: RAM goes back to what the tag held before,
// which is what the next transaction restores on the tag.

#include <cstdint>
#include <vector>

#include "CBackupHandler.h"
#include "CNdefPayLoadArea.h"

class CEepromWriteCareTaker {
public:
    CEepromWriteCareTaker(CNdefPayLoadArea& area, CBackupHandler& backup);

    // Sets the window (and takes the area's place on the tag) and reads it from the area.
    void InitialLoadLampData(uint32_t pageSize, uint32_t pageCount);
    uint32_t GetWindowSize() const { return static_cast<uint32_t>(m_stored.size()); }

    void Read(uint32_t offset, uint8_t* data, uint32_t size) const;
    void Write(uint32_t offset, const uint8_t* data, uint32_t size);
    void Flush();
    // Forgets what is staged and not flushed.
    void Discard() { m_staged = m_stored; }

private:
    void CheckRange(uint32_t offset, uint32_t size) const;

    CNdefPayLoadArea& m_area;
    CBackupHandler& m_backup;
    uint32_t m_tagOffset = 0;
    uint32_t m_pageSize = 1;
    std::vector<uint8_t> m_stored;  // what the tag holds
    std::vector<uint8_t> m_staged;  // what it will hold after Flush
};
