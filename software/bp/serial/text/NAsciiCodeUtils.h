#pragma once
// NAsciiCodeUtils: joining, splitting and validating control codes.
// A code is three characters, optionally "+" and a four-character subcode
// ("NET+PORT"). Split results use "!!!" and "!!!!" for "not found" and "@@@@" for
// "all subcodes" (a code followed by "*").

#include <string>
#include <utility>

#include "control/ControlTypes.h"

namespace NAsciiCodeUtils {

// code, then separator and subcode when the subcode is not empty.
std::string JoinCode(const std::string& code, const std::string& subcode, char separator = '+');
std::string JoinCode(const SControlSet& control, char separator = '+');

// Shorter than 3 characters: "!!!" and "!!!!". Otherwise the code is the first three
// characters and the subcode: "" for exactly three characters, "@@@@" for four ending
// in "*", the four characters after a "+" in fourth place for eight or more characters,
// "!!!!" for any other shape.
void SplitCode(const std::string& text, std::string& code, std::string& subcode);
std::pair<std::string, std::string> SplitCode(const std::string& text);

// True when text has at least 3 characters, starts with a letter, has "+" in fourth
// place when it has a fourth, and letters or digits everywhere else. Upper-cases the
// text in place up to the first invalid character.
bool ValidateCode(std::string& text);

}  // namespace NAsciiCodeUtils
