// What a test sees and steers of the calls to the system that the library makes.
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct SystemCalls {
    std::map<std::string, int> refused = {};  // the calls that fail, and with what error
    std::size_t piece = SIZE_MAX;             // the most bytes that one call reads or writes
    std::size_t room = SIZE_MAX;  // what may be read or written until the device is full
    bool interrupting = false;    // every second reading and writing is, before it begins
    std::string trace = {};  // what was called, each with a blank before it; repetitions are one
};

// Null lets every call through. The opening of a file that must not be there yet is the call "new".
extern SystemCalls* g_calls;
