#pragma once
// NErrorText: the fixed English texts of the EError codes, shared by the ASCII protocol
// and the JSON-RPC error objects. Code 0 has the empty text; every code without a text
// (and every code of 139 or more) is "Unknown Error".

#include <string>

#include "EError.h"

namespace NErrorText {

std::string GetErrorString(EError error);

}  // namespace NErrorText
