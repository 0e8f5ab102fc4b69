#include "NErrorText.h"

namespace NErrorText {

std::string GetErrorString(EError error) {
    switch (error) {
    case ERR_NONE: return "";
    case ERR_INVALID_PARAMETER: return "Invalid Parameter";
    case ERR_TOO_MANY_PARAMETERS: return "Too Many Parameters";
    case ERR_TOO_FEW_PARAMETERS: return "Too Few Parameters";
    case ERR_CHANNEL_NOT_FOUND: return "Channel not found";
    case ERR_COMMAND_NOT_EXECUTED: return "Command not executed";
    case ERR_CHECKSUM: return "Checksum error";
    case ERR_UNKNOWN_REQUEST: return "Unknown request";
    case ERR_SERIAL_RECEIVE: return "Error receiving serial data";
    case ERR_CONTROL_NOT_FOUND: return "Control Not Found";
    case ERR_SUBCONTROL_NOT_FOUND: return "Subcontrol Not Found";
    case ERR_WRONG_CONTROL_TYPE: return "Wrong Control Type";
    case ERR_INVALID_VALUE: return "Invalid Value";
    case ERR_DISABLED_CONTROL: return "Disabled Control";
    case ERR_INVALID_LANGUAGE: return "Invalid Language";
    case ERR_EXCEEDED_LIST_SIZE: return "Exceeded List Size";
    case ERR_COMM_TIMEOUT: return "Communication Timeout";
    case ERR_COMM_FAILURE: return "Communications Failure";
    case ERR_HARDWARE_REFUSED: return "Failed to set Hardware";
    case ERR_BAD_FILE: return "Bad File";
    case ERR_MEMORY_FAILURE: return "Memory Failure";
    case ERR_NOT_IMPLEMENTED: return "Not Implemented";
    case ERR_INVALID_SECURITY_TOKEN: return "Invalid Security Token";
    case ERR_INVALID_ACCESS_GROUP: return "Invalid Access Group";
    case ERR_SYSTEM_BUSY: return "System Busy - Try Again Later";
    case ERR_REQUEST_TOO_LONG: return "Request took too long to execute";
    case ERR_EXECUTION_TIME_LIMIT: return "Execution time limit reached";
    case ERR_EXECUTION_LOST_SYNC: return "Execution lost synchronization";
    case ERR_REQUEST_FAILED: return "Request was executed, but failed";
    case ERR_REQUEST_THREW: return "Request threw exception";
    case ERR_REQUEST_LIST_EMPTY: return "Request list is empty";
    case ERR_REQUEST_LIST_TOO_LONG: return "Request list execution time too long";
    case ERR_REQUEST_NOT_SUPPORTED: return "Request not supported";
    case ERR_NO_VSYNC: return "No vsync from hardware";
    case ERR_UDP_MULTICAST_FAILED: return "UDP Multicast failed";
    case ERR_NO_RESPONSE: return "No response";
    }
    return "Unknown Error";
}

}  // namespace NErrorText
