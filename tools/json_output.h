/**
 * @file
 * JSON on standard output.
 */
#ifndef ZEL_TOOLS_JSON_OUTPUT_H
#define ZEL_TOOLS_JSON_OUTPUT_H

#include <cstdio>
#include <nlohmann/json.hpp>

/** Prints a value; what is not UTF-8 in its texts becomes U+FFFD. */
inline void PrintJson(const nlohmann::ordered_json& value) {
    using nlohmann::ordered_json;
    std::printf("%s\n", value.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

#endif
