// The picture the system server writes into /tmp/snap.jpg when asked.
#pragma once

#include <cstdint>

inline constexpr const char* kSnapFile = "/tmp/snap.jpg";

// Asks the system server for a picture with the request's four bytes and
// waits for the file, testing every 100 ms for at most 3 s. 0 when it is
// there; -1 when the request failed or no picture came.
int snapshot_take(const uint8_t (&request)[4]);
