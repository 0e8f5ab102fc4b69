#include "ControllerFixture.h"

#include <unistd.h>

CControllerFixture::CControllerFixture() {
    root.MakeDir("/var/run/ui");
    controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, dispatcher, proxy, "BRI", true, 0, 100, 50,
                                                  ACCESS_OPERATOR, 11, 12, 0, false));
    controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, dispatcher, proxy, "NET+PORT", false, 1, 65535, 3002,
                                                  ACCESS_OPERATOR, 0, 0, 0, false));
    controls.push_back(
        std::make_unique<CProjCon>(DT_BOOLEAN, dispatcher, proxy, "LMP", false, false, ACCESS_OPERATOR, 1, 0, false));
    controls.push_back(
        std::make_unique<CProjCon>(DT_ACTION, dispatcher, proxy, "RST", false, ACCESS_OPERATOR, 0, 0, 0, false));
    auto input = std::make_unique<CProjCon>(DT_LIST, dispatcher, proxy, "INP", false, 1, ACCESS_OPERATOR, 0, 0, false);
    // value, text id, user data, shown, selectable, text, icon
    input->AddList({SListEntry{1, 0, 0, true, true, "HDMI", ""}, SListEntry{2, 0, 0, true, false, "DVI", ""},
                    SListEntry{3, 0, 0, false, true, "SDI", ""}});
    controls.push_back(std::move(input));
    controls.push_back(std::make_unique<CProjCon>(DT_TEXT, dispatcher, proxy, "NAM", false, 1, 16, "Projector",
                                                  ACCESS_OPERATOR, 0, 0, false));
    controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, dispatcher, proxy, "FAC", false, 0, 10, 0,
                                                  ACCESS_FACTORY, 0, 0, 0, false));
    controls.push_back(std::make_unique<CProjCon>(DT_INTEGER, dispatcher, proxy, "RDO", false, 0, 10, 0,
                                                  ACCESS_OPERATOR, 0, 0, 0, true));
    controller = std::make_unique<CControllerThread>(dispatcher, root.Path(kControllerSocket), log);
    controller->Start();
    link = std::make_unique<CEventLink>(log, "test");
}

CControllerFixture::~CControllerFixture() {
    link.reset();
    controller->Stop();
    controller.reset();
    controls.clear();
}

std::string CControllerFixture::Arg(const CIpcMessage& message, unsigned short id) {
    std::string text;
    message.GetArg(id, text);
    return text;
}

int CControllerFixture::ErrorOf(const CIpcMessage& message) {
    int error = 0;
    message.GetArg(CIpcMessage::kErrorCodeParm, error);
    return error;
}

CIpcMessage CControllerFixture::Message(const std::string& code, const std::string& subcode) const {
    CIpcMessage message;
    message.SetCode(code);
    message.SetSubCode(subcode);
    return message;
}

std::list<CIpcMessage> CControllerFixture::Notes(size_t count) {
    std::list<CIpcMessage> notes;
    for (int i = 0; i < 200 && notes.size() < count; ++i) {
        link->ProcessNotify(notes);
        usleep(5000);
    }
    return notes;
}
