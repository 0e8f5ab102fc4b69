// The "system" module: lamp history and cool-down from the lamp side, network settings
// checked and stored, the USB mount and icon folders found under the runtime root, and
// the keep-alive handed to the process monitor.

#include <filesystem>

#include "C4jFixture.h"
#include "CC4jSystem.h"

namespace {

struct SLampSide : ILampData, ILampListener {
    bool GetLampHistory(std::vector<SLampHistoryEntry>& out) const override {
        out = history;
        return readable;
    }
    unsigned int GetCooldownTimeS() const override { return cooldownS; }
    bool IsAcPowerLimited() const override { return limited; }
    std::vector<SLampHistoryEntry> history;
    bool readable = true;
    unsigned int cooldownS = 0;
    bool limited = false;
};

struct SMonitor : IProcessMonitor {
    bool KeepAlive(int pid, unsigned int seconds, const std::string& name) override {
        calls.push_back(std::to_string(pid) + "/" + std::to_string(seconds) + "/" + name);
        return pid > 0;
    }
    std::vector<std::string> calls;
};

class CC4jSystemTest : public CC4jFixture {
protected:
    CC4jSystemTest() {
        client = Connect();
        server.SetClientAccessLevel(client->id, ACCESS_OPERATOR);  // address and keep-alive need a login
    }

    SLampSide lamps;
    CNetwork network;
    CC4jSystem system{server, network, 3, &lamps, &lamps};
    TClient client;
};

}  // namespace

TEST_F(CC4jSystemTest, LampHistoryRoundsHoursAndCooldownChangesAreNotified) {
    EXPECT_EQ(Call(*client, "system:getLampHistory")["error"]["message"], "Cannot find any lamp history.");
    lamps.history = {{"XEN", 4102444800u, 10, 1, 2, 0, 5399}, {"XEN-2", 7, 0, 0, 0, 3600, 5400 - 3600}};
    const Json::Value history = Result(*client, "system:getLampHistory");
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0]["totalHours"], 1);
    EXPECT_EQ(history[0]["installDate"].asUInt(), 4102444800u);
    EXPECT_EQ(history[0]["failedStrikes"], 1);
    EXPECT_EQ(history[1]["preInstalledHours"], 1);
    EXPECT_EQ(history[1]["totalHours"], 2);
    EXPECT_EQ(Result(*client, "system:getFamily"), 3);

    lamps.cooldownS = 60;
    lamps.limited = true;
    EXPECT_EQ(Result(*client, "system:getCooldownTime")["sec"], 60);
    EXPECT_EQ(Result(*client, "system:getAcPowerMode")["powerMode"], "limited");
    Result(*client, "system:addListener", R"({"notifyMethod": "system:notifyCooldownTime"})");
    EXPECT_EQ(Next(*client)["params"]["sec"], 60);  // the current count at once
    system.NotifyCooldownTimeS(59);
    const Json::Value note = Next(*client);
    EXPECT_EQ(note["method"], "system:notifyCooldownTime");
    EXPECT_EQ(note["params"]["sec"], 59);
    system.NotifyCooldownTimeS(59);
    EXPECT_TRUE(Quiet(*client));
    EXPECT_TRUE(log.Logged("Recv'd 'system:getCooldownTime' from"));
}

TEST_F(CC4jSystemTest, NetworkSettingsAreCheckedBeforeTheyAreStored) {
    const std::string file = root.Path(CNetwork::kSettingsFile);
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_USER));  // an anonymous client moves nothing
    EXPECT_EQ(ErrorCode(*client, "system:setNetworkAddress", R"({"ip": "10.0.0.9", "netmask": "255.0.0.0"})"),
              ERR_INVALID_ACCESS_GROUP);
    EXPECT_EQ(ErrorCode(*client, "system:keepAlive", R"({"pid": 12, "sec": 5, "name": "ui"})"), ERR_INVALID_ACCESS_GROUP);
    EXPECT_FALSE(std::filesystem::exists(file));
    ASSERT_TRUE(server.SetClientAccessLevel(client->id, ACCESS_OPERATOR));
    const struct {
        const char* params;
        int error;
        const char* stored;  // the file afterwards, "" for none
    } cases[] = {
        {R"({"auto": false})", 7, ""},
        {R"({"ip": "10.0.0.5", "netmask": "255.255.255.0", "gateway": "10.0.1.1"})", 3, ""},  // gateway elsewhere
        {R"({"ip": "10.0.0.255", "netmask": "255.255.255.0"})", 3, ""},                       // broadcast
        {R"({"ip": "10.0.0.5", "netmask": "255.0.255.0"})", 3, ""},                           // holes in the mask
        {R"({"ip": "10.0.0.300", "netmask": "255.255.255.0"})", 3, ""},
        {R"({"ip": 5, "netmask": "255.255.255.0"})", 3, ""},
        {R"({"auto": "yes"})", 3, ""},
        {R"({"ip": "10.0.0.5", "netmask": "255.255.255.0"})", 0,
         R"({"gateway": "0.0.0.0", "ip": "10.0.0.5", "mode": "static", "netmask": "255.255.255.0"})"},
        {R"({"auto": true})", 0, R"({"gateway": "", "ip": "", "mode": "dhcp", "netmask": ""})"},
        {R"({"auto": true, "ip": "192.168.1.9", "netmask": "255.255.0.0", "gateway": "192.168.0.1"})", 0,
         R"({"gateway": "192.168.0.1", "ip": "192.168.1.9", "mode": "dhcp", "netmask": "255.255.0.0"})"},
    };
    std::string expected;
    for (const auto& test : cases) {
        const Json::Value reply = Call(*client, "system:setNetworkAddress", test.params);
        EXPECT_EQ(reply["error"]["code"].asInt(), test.error) << test.params;
        if (test.error == 0) {
            EXPECT_EQ(reply["result"]["ip"], J(test.params).get("ip", ""));
            expected = test.stored;
        }
        EXPECT_EQ(std::filesystem::exists(file) ? J(CTempRoot::ReadFile(file)) : Json::Value(),
                  expected.empty() ? Json::Value() : J(expected))
            << test.params;
    }
    EXPECT_TRUE(log.Logged("(static: 10.0.0.5, 255.255.255.0, 0.0.0.0)"));
    EXPECT_TRUE(log.Logged("Recv'd 'system:setNetworkAddress' from [ID:"));
}

TEST_F(CC4jSystemTest, UsbMountIconFoldersAndKeepAlive) {
    EXPECT_EQ(Call(*client, "system:getUsbPath")["error"]["message"], "Couldn't find USB filesystem");
    root.WriteFile("/proc/mounts", "proc /proc proc rw 0 0\n/dev/mmcblk0p2 / ext4 rw 0 0\n"
                                   "/dev/sdb1 /media/usb\\040stick vfat rw 0 0\n/dev/sdc1 /media/other vfat rw 0 0\n");
    EXPECT_EQ(Result(*client, "system:getUsbPath"), "/media/usb stick");

    EXPECT_EQ(Result(*client, "system:getIconPaths"), J("[]"));
    root.MakeDir("/var/data/icons");
    EXPECT_EQ(Result(*client, "system:getIconPaths"), J(R"(["/var/data/icons"])"));

    EXPECT_EQ(ErrorCode(*client, "system:keepAlive", R"({"pid": 12, "sec": 5, "name": "ui"})"), 7);  // no monitor
    SMonitor monitor;
    system.AddProcessMonitor(&monitor);
    EXPECT_EQ(ErrorCode(*client, "system:keepAlive", R"({"pid": 12, "name": "ui"})"), 3);
    EXPECT_EQ(ErrorCode(*client, "system:keepAlive", R"({"pid": -1, "sec": 5, "name": "ui"})"), 7);
    EXPECT_EQ(Result(*client, "system:keepAlive", R"({"pid": 12, "sec": 5, "name": "ui"})"), true);
    EXPECT_EQ(monitor.calls, (std::vector<std::string>{"-1/5/ui", "12/5/ui"}));
}
