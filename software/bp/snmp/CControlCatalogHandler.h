#pragma once
// CControlCatalogHandler: answers the control catalog request ("CAT", NControlCatalog)
// in the controller, from the dispatcher's registry of controls.
//
// Registered as the exclusive handler of "CAT": commands of that code are declined and
// answered "not found". A control whose text cannot travel (a NUL in it, or a reply of
// 4096 bytes or more) is listed with an empty text rather than failing the catalog.
//
// Lifetime: the dispatcher outlives it. Thread contract: the controller's event thread.

#include <list>

#include "control/CCustomEventHandler.h"

class CControlCatalogHandler : public CCustomEventHandler {
public:
    // Throws like CCustomEventHandler when "CAT" already has a handler.
    explicit CControlCatalogHandler(CEventDispatcher& dispatcher);

protected:
    // Always true.
    bool HandleIpcRequest(const CIpcMessage& request, std::list<CIpcMessage>& replies) override;
};
