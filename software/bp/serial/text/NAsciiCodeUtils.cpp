#include "NAsciiCodeUtils.h"

#include <cctype>

namespace NAsciiCodeUtils {

std::string JoinCode(const std::string& code, const std::string& subcode, char separator) {
    return subcode.empty() ? code : code + separator + subcode;
}

std::string JoinCode(const SControlSet& control, char separator) {
    return JoinCode(control.code, control.subcode, separator);
}

void SplitCode(const std::string& text, std::string& code, std::string& subcode) {
    code = "!!!";
    subcode = "!!!!";
    if (text.size() < 3) {
        return;
    }
    code = text.substr(0, 3);
    if (text.size() == 3) {
        subcode.clear();
    } else if (text.size() == 4 && text[3] == '*') {
        subcode = "@@@@";
    } else if (text.size() >= 8 && text[3] == '+') {
        subcode = text.substr(4, 4);
    }
}

std::pair<std::string, std::string> SplitCode(const std::string& text) {
    std::pair<std::string, std::string> parts;
    SplitCode(text, parts.first, parts.second);
    return parts;
}

bool ValidateCode(std::string& text) {
    if (text.size() < 3) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const bool valid = i == 0 ? std::isalpha(c) != 0 : i == 3 ? c == '+' : std::isalnum(c) != 0;
        if (!valid) {
            return false;
        }
        text[i] = static_cast<char>(std::toupper(c));
    }
    return true;
}

}  // namespace NAsciiCodeUtils
