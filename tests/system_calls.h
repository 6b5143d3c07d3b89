// What a test sees and steers of the calls to the system, and of the allocations, that the library
// makes. They are defined in the executable, so that every shared library finds these first.
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct SystemCalls {
    std::map<std::string, int> refused = {};  // the calls that fail, and with what error
    bool once = false;                        // each of them only the first time
    std::size_t piece = SIZE_MAX;             // the most bytes that one call reads or writes
    std::size_t room = SIZE_MAX;  // what may be read or written until the device is full
    bool interrupting = false;    // every second reading and writing is, before it begins
    bool tracing = false;         // the calls that change something stand in the log, as S
    std::string directory = {};   // counts as one byte in the sizes that are traced
    int first = 0;                // the number of the call that fails; 0: none
    bool all = false;             // and all that follow
    int calls = 0;                // made so far
    std::string failed = {};      // the names of those that failed, each between blanks
};

// Null lets every call through. The opening of a file that must not be there yet is the call "new",
// an allocation by operator new "memory".
extern SystemCalls* g_calls;
