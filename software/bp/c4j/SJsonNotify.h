#pragma once
// SJsonNotify: one notification ready to send: the complete JSON-RPC notification text
// and the addresses ("JSON_TCP.<client id>") of the clients it goes to.

#include <list>
#include <string>

struct SJsonNotify {
    std::string message;
    std::list<std::string> recipients;
};
