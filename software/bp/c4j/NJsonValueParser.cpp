#include "NJsonValueParser.h"

#include <climits>

namespace {

const Json::Value* ElementAt(const Json::Value& array, Json::ArrayIndex index) {
    if (!array.isArray() || index >= array.size()) {
        return nullptr;
    }
    return &array[index];
}

const Json::Value* MemberOf(const Json::Value& object, const std::string& name) {
    if (!object.isObject()) {
        return nullptr;
    }
    // find() takes the name's length, so a name holding a NUL character is looked up whole.
    return object.find(name.data(), name.data() + name.size());
}

// Whole numbers in [low, high], whichever way jsoncpp stored them. A real is checked by
// range before the cast, so the cast is always defined (NaN fails both comparisons).
bool ToWhole(const Json::Value& value, double low, double high, long long& out) {
    switch (value.type()) {
        case Json::intValue: {
            const Json::Int64 number = value.asInt64();
            if (static_cast<double>(number) < low || static_cast<double>(number) > high) {
                return false;
            }
            out = number;
            return true;
        }
        case Json::uintValue: {
            const Json::UInt64 number = value.asUInt64();
            if (static_cast<double>(number) > high) {
                return false;
            }
            out = static_cast<long long>(number);
            return true;
        }
        case Json::realValue: {
            const double number = value.asDouble();
            if (!(number >= low && number <= high)) {
                return false;
            }
            const long long whole = static_cast<long long>(number);
            if (static_cast<double>(whole) != number) {
                return false;
            }
            out = whole;
            return true;
        }
        default:
            return false;
    }
}

bool ToInt(const Json::Value& value, int& out) {
    long long whole = 0;
    if (!ToWhole(value, INT_MIN, INT_MAX, whole)) {
        return false;
    }
    out = static_cast<int>(whole);
    return true;
}

bool ToUInt(const Json::Value& value, unsigned int& out) {
    long long whole = 0;
    if (!ToWhole(value, 0, UINT_MAX, whole)) {
        return false;
    }
    out = static_cast<unsigned int>(whole);
    return true;
}

bool ToBool(const Json::Value& value, bool& out) {
    if (!value.isBool()) {
        return false;
    }
    out = value.asBool();
    return true;
}

bool ToString(const Json::Value& value, std::string& out) {
    if (!value.isString()) {
        return false;
    }
    out = value.asString();
    return true;
}

template <typename T>
std::pair<bool, T> Read(const Json::Value* element, const T& defaultValue, bool (*convert)(const Json::Value&, T&)) {
    T value = defaultValue;
    if (element && convert(*element, value)) {
        return {true, value};
    }
    return {false, defaultValue};
}

}  // namespace

namespace NJsonValueParser {

bool GetBoolFromArray(const Json::Value& array, Json::ArrayIndex index) {
    return GetBoolFromArray2(array, index, false).second;
}

int GetIntFromArray(const Json::Value& array, Json::ArrayIndex index) {
    return GetIntFromArray2(array, index, 0).second;
}

unsigned int GetUIntFromArray(const Json::Value& array, Json::ArrayIndex index) {
    return GetUIntFromArray2(array, index, 0).second;
}

std::string GetStringFromArray(const Json::Value& array, Json::ArrayIndex index) {
    return GetStringFromArray2(array, index, std::string()).second;
}

std::pair<bool, bool> GetBoolFromArray2(const Json::Value& array, Json::ArrayIndex index, bool defaultValue) {
    return Read(ElementAt(array, index), defaultValue, ToBool);
}

std::pair<bool, int> GetIntFromArray2(const Json::Value& array, Json::ArrayIndex index, int defaultValue) {
    return Read(ElementAt(array, index), defaultValue, ToInt);
}

std::pair<bool, unsigned int> GetUIntFromArray2(const Json::Value& array, Json::ArrayIndex index,
                                                unsigned int defaultValue) {
    return Read(ElementAt(array, index), defaultValue, ToUInt);
}

std::pair<bool, std::string> GetStringFromArray2(const Json::Value& array, Json::ArrayIndex index,
                                                 const std::string& defaultValue) {
    return Read(ElementAt(array, index), defaultValue, ToString);
}

bool ValueExistInArray(const Json::Value& array, Json::ArrayIndex index) {
    return ElementAt(array, index) != nullptr;
}

std::pair<bool, int> GetIntFromObj(const Json::Value& object, const std::string& name, int defaultValue) {
    return Read(MemberOf(object, name), defaultValue, ToInt);
}

std::pair<bool, unsigned int> GetUIntFromObj(const Json::Value& object, const std::string& name,
                                             unsigned int defaultValue) {
    return Read(MemberOf(object, name), defaultValue, ToUInt);
}

std::pair<bool, bool> GetBoolFromObj(const Json::Value& object, const std::string& name, bool defaultValue) {
    return Read(MemberOf(object, name), defaultValue, ToBool);
}

std::pair<bool, std::string> GetStringFromObj(const Json::Value& object, const std::string& name,
                                              const std::string& defaultValue) {
    return Read(MemberOf(object, name), defaultValue, ToString);
}

Json::Value GetArrayFromObj(const Json::Value& object, const std::string& name) {
    const Json::Value* member = MemberOf(object, name);
    return member && member->isArray() ? *member : Json::Value();
}

Json::Value GetObjFromObj(const Json::Value& object, const std::string& name) {
    const Json::Value* member = MemberOf(object, name);
    return member && member->isObject() ? *member : Json::Value();
}

std::vector<std::string> GetStringsFromObj(const Json::Value& object, const std::string& name) {
    std::vector<std::string> texts;
    const Json::Value* member = MemberOf(object, name);
    if (!member) {
        return texts;
    }
    if (member->isString()) {
        texts.push_back(member->asString());
    } else if (member->isArray()) {
        for (const Json::Value& element : *member) {
            if (element.isString()) {
                texts.push_back(element.asString());
            }
        }
    }
    return texts;
}

bool ValueExistInObj(const Json::Value& object, const std::string& name) {
    return MemberOf(object, name) != nullptr;
}

std::string MakeCode(std::string_view text) {
    std::string code(text);
    // ASCII only and independent of the locale: codes are ASCII, other bytes pass through.
    for (char& c : code) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return code;
}

bool ParseCode(const Json::Value& value, std::string& code) {
    const char* begin = nullptr;
    const char* end = nullptr;
    if (!value.getString(&begin, &end)) {
        return false;
    }
    code = MakeCode(std::string_view(begin, static_cast<size_t>(end - begin)));
    return true;
}

std::string GetCodeFromParams(const Json::Value& params) {
    const Json::Value* source = nullptr;
    if (params.isArray()) {
        source = ElementAt(params, 0);
    } else if (params.isObject()) {
        source = MemberOf(params, "code");
    }
    std::string code;
    if (source) {
        ParseCode(*source, code);
    }
    return code;
}

}  // namespace NJsonValueParser
