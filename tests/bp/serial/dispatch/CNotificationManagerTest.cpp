#include <gtest/gtest.h>

#include <climits>
#include <list>
#include <string>

#include "dispatch/CNotificationManager.h"

namespace {

using Addresses = std::list<std::string>;

Addresses Ipc(const CNotificationManager& manager, const std::string& key) {
    Addresses recipients{"stale", "also stale"};
    manager.GetIpcRecipientList(key, recipients);
    return recipients;
}

Addresses Json(const CNotificationManager& manager, const std::string& key) {
    Addresses recipients{"stale", "also stale"};
    manager.GetC4jRecipientList(key, recipients);
    return recipients;
}

TEST(CNotificationManager, RegistrationIsCountedUntilLastUnregister) {
    CNotificationManager manager;
    for (const std::string address : {"/var/run/ui/notify", "JSON_TCP.7"}) {
        EXPECT_EQ(manager.NotifyRegister("BRI", address), 1) << address;
        EXPECT_EQ(manager.NotifyRegister("BRI", address), 2) << address;
        manager.NotifyUnregister("BRI", address, false);
        const auto entry = manager.GetNotifyList("BRI");
        EXPECT_EQ(entry.ipc.size() + entry.json.size(), 1u) << address;
        manager.NotifyUnregister("BRI", address, false);
        EXPECT_TRUE(Ipc(manager, "BRI").empty()) << address;
        EXPECT_TRUE(Json(manager, "BRI").empty()) << address;
        EXPECT_EQ(manager.NotifyRegister("BRI", address), 1) << address;
        manager.NotifyUnregister("BRI", address, false);
    }
}

TEST(CNotificationManager, ForcedUnregisterRemovesWhateverTheCount) {
    CNotificationManager manager;
    for (int i = 0; i < 3; ++i) {
        manager.NotifyRegister("BRI", "JSON_TCP.1");
    }
    manager.NotifyRegister("BRI", "JSON_TCP.2");
    manager.NotifyUnregister("BRI", "JSON_TCP.1", true);
    EXPECT_EQ(Json(manager, "BRI"), Addresses{"JSON_TCP.2"});
    EXPECT_EQ(manager.GetNotifyList("BRI").jsonCount, 1);
}

TEST(CNotificationManager, UnregisterAllReportsKeysInOrderAndSparesOthers) {
    CNotificationManager manager;
    manager.NotifyRegister("SUMM", "/tmp/a");
    manager.NotifyRegister("ALRM", "/tmp/a");
    manager.NotifyRegister("ALRM", "/tmp/a");
    manager.NotifyRegister("SUMM", "/tmp/b");
    manager.NotifyRegister("BRI", "/tmp/b");
    manager.NotifyRegister("SUMM", "JSON_TCP.3");

    EXPECT_EQ(manager.NotifyUnregisterAll("/tmp/a"), "ALRM SUMM ");
    const auto alarms = manager.GetNotifyList("ALRM");
    EXPECT_TRUE(alarms.ipc.empty());
    EXPECT_EQ(alarms.ipcCount, 0);
    EXPECT_EQ(manager.GetNotifyList("SUMM").ipcCount, 1);
    EXPECT_EQ(Ipc(manager, "SUMM"), Addresses{"/tmp/b"});
    EXPECT_EQ(Ipc(manager, "BRI"), Addresses{"/tmp/b"});
    EXPECT_EQ(Json(manager, "SUMM"), Addresses{"JSON_TCP.3"});
    EXPECT_EQ(manager.NotifyUnregisterAll("/tmp/a"), "");
    EXPECT_EQ(manager.NotifyRegister("ALRM", "/tmp/a"), 1);
}

TEST(CNotificationManager, JsonAddressesAreKeptApartInRegistrationOrder) {
    CNotificationManager manager;
    for (const char* address : {"/tmp/z", "JSON_TCP.7", "/tmp/a", "xJSON_TCPy", "JSON_TCP.1"}) {
        manager.NotifyRegister("BRI", address);
    }
    EXPECT_EQ(Ipc(manager, "BRI"), (Addresses{"/tmp/z", "/tmp/a"}));
    EXPECT_EQ(Json(manager, "BRI"), (Addresses{"JSON_TCP.7", "xJSON_TCPy", "JSON_TCP.1"}));
    const auto entry = manager.GetNotifyList("BRI");
    EXPECT_EQ(entry.ipcCount, 2);
    EXPECT_EQ(entry.jsonCount, 3);
    EXPECT_FALSE(CNotificationManager::IsJsonAddr("JSON_TC.7"));
}

// The address is formatted into a fixed buffer: the longest id must fit whole.
TEST(CNotificationManager, AddressOfEveryClientIdIsWhole) {
    for (int id : {0, 7, INT_MAX, INT_MIN}) {
        const std::string address = CNotificationManager::MakeAddrFromSocket(id);
        EXPECT_EQ(address, "JSON_TCP." + std::to_string(id));
        EXPECT_TRUE(CNotificationManager::IsJsonAddr(address));
    }
}

TEST(CNotificationManager, UnregisteringUnknownKeyOrAddressChangesNothing) {
    CNotificationManager manager;
    manager.NotifyRegister("BRI", "/tmp/a");
    manager.NotifyUnregister("CON", "/tmp/a", true);
    manager.NotifyUnregister("BRI", "/tmp/b", true);
    manager.NotifyUnregister("BRI", "JSON_TCP.1", false);
    EXPECT_EQ(Ipc(manager, "BRI"), Addresses{"/tmp/a"});
    EXPECT_TRUE(Json(manager, "CON").empty());
    EXPECT_EQ(manager.GetNotifyList("CON").ipcCount, 0);
}

}  // namespace
