#pragma once
// SJsonNotify: one notification ready to send: the complete JSON-RPC notification text,
// the addresses ("JSON_TCP.<client id>") of the clients it goes to, and the key of what it
// tells about (a control code, "status:notify.<group>.<idx>", ...): a later notification
// of the same key supersedes it, which is what lets a client that fell behind catch up
// with only the latest of each (empty: the message text itself is the key).

#include <list>
#include <string>

struct SJsonNotify {
    std::string message;
    std::list<std::string> recipients;
    std::string key;
};
