#pragma once
// NNetInterface: facts about a network interface that sockets need.
//
// Thread contract: plain functions.

#include <netinet/in.h>

#include <string>

namespace NNetInterface {

// The interface's IPv4 address (SIOCGIFADDR); false with errno set when the interface does
// not exist or has none.
bool GetIPv4Address(const std::string& name, in_addr& address);

// The interface's hardware address as "xx:xx:xx:xx:xx:xx" in lower-case hex
// (SIOCGIFHWADDR); false with errno set when the interface does not exist.
bool GetMacAddress(const std::string& name, std::string& mac);

// Ties a socket to the interface (SO_BINDTODEVICE); false with errno set.
bool BindToDevice(int socket, const std::string& name);

}  // namespace NNetInterface
