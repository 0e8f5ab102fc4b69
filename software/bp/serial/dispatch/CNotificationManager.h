#pragma once
// CNotificationManager: who wants to hear about what. Maps a key (a joined control code,
// a status group, "SUMM", "ALRM" or a JSON method name) to the listeners registered for
// it, kept in two lists: IPC notification socket paths and JSON-RPC client addresses
// ("JSON_TCP.<client id>"). Each registration is reference-counted: registering twice
// needs two ordinary unregisters (or one forced) to remove it.
//
// Thread contract: used on the controller's event thread only; no lock.

#include <list>
#include <string>
#include <unordered_map>
#include <vector>

class CNotificationManager {
public:
    struct SRegistration {
        std::string address;
        int count;
    };
    struct SEntry {
        std::list<SRegistration> ipc;
        int ipcCount = 0;
        std::list<SRegistration> json;
        int jsonCount = 0;
    };

    // The registration's reference count after the call.
    int NotifyRegister(const std::string& key, const std::string& address);
    // Lowers the count; removes the registration when it falls below 1 or when forced.
    void NotifyUnregister(const std::string& key, const std::string& address, bool force);
    // Removes the address from every key whatever its count; returns the keys it was
    // removed from, in key order, each followed by one blank.
    std::string NotifyUnregisterAll(const std::string& address);

    void GetIpcRecipientList(const std::string& key, std::list<std::string>& recipients) const;
    void GetC4jRecipientList(const std::string& key, std::list<std::string>& recipients) const;
    // Both lists of a key; an empty entry when nobody is registered.
    SEntry GetNotifyList(const std::string& key) const;
    // Every key with at least one registration, in key order.
    std::vector<std::string> GetKeys() const;

    // "JSON_TCP.<clientId>".
    static std::string MakeAddrFromSocket(int clientId);
    // True when the address contains "JSON_TCP" anywhere.
    static bool IsJsonAddr(const std::string& address);

private:
    // A hash: every change of a control looks its code up, and the readers of the keys'
    // order (GetKeys, NotifyUnregisterAll) sort what they return.
    std::unordered_map<std::string, SEntry> m_keys;
};
