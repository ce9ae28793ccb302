// Bytes as lower-case hex ("81 01 04 07 25 ff"), the way the tests write packets.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace fake {

inline std::string hex_of(const std::vector<uint8_t>& bytes) {
    std::string s;
    char b[4];
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(b, sizeof b, i ? " %02x" : "%02x", bytes[i]);
        s += b;
    }
    return s;
}

}  // namespace fake
