#include "CPtResource.h"

#include "CException.h"

CPtResource::CPtResource(IPtBus& bus, unsigned char port, unsigned int baseAddress)
    : m_bus(bus), m_port(port), m_base(baseAddress) {
    if (baseAddress % 4 != 0) {
        THROW_EXCEPTION("Base address must be aligned to 32 bit boundary (%#x)", baseAddress);
    }
}
