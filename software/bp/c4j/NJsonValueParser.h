#pragma once
// NJsonValueParser: typed readers of the parameters of a JSON-RPC request. Parameters
// come from clients, so nothing here trusts the kind of a value: every reader checks the
// container and the element before reading, never throws, and never converts between
// kinds (jsoncpp's as*() would throw on some mismatches and silently convert on others).
//
// Kinds each reader accepts:
//   Int     a JSON integer, or a number with no fractional part (3.0 is 3), that fits in
//           int. 3.5, 1e20, true and "3" are not found.
//   UInt    the same rule with the range of unsigned int: -1 is not found, it never
//           wraps around to a large value.
//   Bool    true or false only; 0 and 1 are numbers and are not found.
//   String  a JSON string only; numbers are not turned into text.
//
// Array forms take an index, object forms a member name. The "2" and "Obj" forms take a
// default and return (found, value): found is false and value the default when the
// container has the wrong kind, the element is missing, or it has the wrong kind. The
// plain array forms return the value, or false / 0 / "" in those cases.
//
// Stateless; safe from any thread.

#include <json/json.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NJsonValueParser {

bool GetBoolFromArray(const Json::Value& array, Json::ArrayIndex index);
int GetIntFromArray(const Json::Value& array, Json::ArrayIndex index);
unsigned int GetUIntFromArray(const Json::Value& array, Json::ArrayIndex index);
std::string GetStringFromArray(const Json::Value& array, Json::ArrayIndex index);

std::pair<bool, bool> GetBoolFromArray2(const Json::Value& array, Json::ArrayIndex index, bool defaultValue);
std::pair<bool, int> GetIntFromArray2(const Json::Value& array, Json::ArrayIndex index, int defaultValue);
std::pair<bool, unsigned int> GetUIntFromArray2(const Json::Value& array, Json::ArrayIndex index,
                                                unsigned int defaultValue);
std::pair<bool, std::string> GetStringFromArray2(const Json::Value& array, Json::ArrayIndex index,
                                                 const std::string& defaultValue);

// True when `array` is an array with an element at `index` (of any kind, null included).
bool ValueExistInArray(const Json::Value& array, Json::ArrayIndex index);

std::pair<bool, int> GetIntFromObj(const Json::Value& object, const std::string& name, int defaultValue);
std::pair<bool, unsigned int> GetUIntFromObj(const Json::Value& object, const std::string& name,
                                             unsigned int defaultValue);
std::pair<bool, bool> GetBoolFromObj(const Json::Value& object, const std::string& name, bool defaultValue);
std::pair<bool, std::string> GetStringFromObj(const Json::Value& object, const std::string& name,
                                              const std::string& defaultValue);

// A copy of the member when it is an array (an object), else null.
Json::Value GetArrayFromObj(const Json::Value& object, const std::string& name);
Json::Value GetObjFromObj(const Json::Value& object, const std::string& name);

// The texts of a member that may be one text or a list of them: a string gives a list of
// one; an array gives its string elements in order, skipping the others; anything else
// (or a missing member) gives an empty list.
std::vector<std::string> GetStringsFromObj(const Json::Value& object, const std::string& name);

// True when `object` is an object with that member (of any kind, null included).
bool ValueExistInObj(const Json::Value& object, const std::string& name);

// A control code from its text: upper case ASCII ("gio+stat" becomes "GIO+STAT"), every
// other byte as it is.
std::string MakeCode(std::string_view text);

// A control code: when `value` is a string, stores MakeCode of it and returns true;
// otherwise returns false and leaves `code` as is.
bool ParseCode(const Json::Value& value, std::string& code);

// The control code a request names: params[0] when params is an array, params["code"]
// when it is an object, upper-cased as by ParseCode; "" when there is none or it is not
// a string.
std::string GetCodeFromParams(const Json::Value& params);

}  // namespace NJsonValueParser
