#pragma once
// EError: the numeric result codes shared by IPC replies, control changes and both
// command front-ends. The numbers travel on the wire (IPC parameter 220, ASCII error
// replies, JSON-RPC error objects) and must never be renumbered.

enum EError : int {
    ERR_NONE = 0,
    ERR_INVALID_PARAMETER = 3,      // wrong argument kind or unsupported modifier
    ERR_TOO_MANY_PARAMETERS = 4,
    ERR_TOO_FEW_PARAMETERS = 5,
    ERR_CHANNEL_NOT_FOUND = 6,
    ERR_COMMAND_NOT_EXECUTED = 7,
    ERR_CHECKSUM = 8,
    ERR_UNKNOWN_REQUEST = 9,
    ERR_SERIAL_RECEIVE = 10,        // every ASCII syntax error
    ERR_CONTROL_NOT_FOUND = 101,
    ERR_SUBCONTROL_NOT_FOUND = 102,
    ERR_WRONG_CONTROL_TYPE = 103,
    ERR_INVALID_VALUE = 104,        // out of range or not in the list
    ERR_DISABLED_CONTROL = 105,     // control disabled or list entry not selectable
    ERR_INVALID_LANGUAGE = 106,
    ERR_EXCEEDED_LIST_SIZE = 107,
    ERR_COMM_TIMEOUT = 110,         // no reply in time
    ERR_COMM_FAILURE = 111,
    ERR_HARDWARE_REFUSED = 112,     // the application refused; the old value was restored
    ERR_BAD_FILE = 113,
    ERR_MEMORY_FAILURE = 114,
    ERR_NOT_IMPLEMENTED = 115,
    ERR_INVALID_SECURITY_TOKEN = 116,
    ERR_INVALID_ACCESS_GROUP = 117, // the sender's access level is too low
    ERR_SYSTEM_BUSY = 118,
    ERR_REQUEST_TOO_LONG = 128,
    ERR_EXECUTION_TIME_LIMIT = 129,
    ERR_EXECUTION_LOST_SYNC = 130,
    ERR_REQUEST_FAILED = 131,
    ERR_REQUEST_THREW = 132,
    ERR_REQUEST_LIST_EMPTY = 133,
    ERR_REQUEST_LIST_TOO_LONG = 134,
    ERR_REQUEST_NOT_SUPPORTED = 135,
    ERR_NO_VSYNC = 136,
    ERR_UDP_MULTICAST_FAILED = 137,
    ERR_NO_RESPONSE = 138,
};
