// Console macros every module reports through: each writes to standard error
// when the print level allows it and also hands the line to the logger.
#pragma once

#include <cstdint>
#include <cstdio>

#include "support/elog.h"

// Terminal colours of the console lines: the escape, or "" when the stream
// (standard error unless `fd` says otherwise) is no terminal, so that a
// journal or a file gets plain text.
enum class Tint : uint8_t { red, bold_red, magenta, blue, cyan, end };
const char* tint(Tint t, int fd = 2);
// Colours on (1) or off (0) for `fd` whatever it is, or asked of it again (-1).
void tint_force(int fd, int on);

// LOG_ERR under a function name of the caller's choosing, for a helper that
// reports on behalf of the function that called it.
#define LOG_ERR_AS(func, fmt, ...)                                                                      \
    do {                                                                                                \
        if (g_print_level >= 2) {                                                                       \
            std::fprintf(stderr, "%s[%s]-%d: %s" fmt, tint(Tint::red), func, __LINE__, tint(Tint::end), \
                         ##__VA_ARGS__);                                                                \
            std::fflush(stdout);                                                                        \
            elog_output(ELOG_LVL_WARN, "NO_TAG", __FILE_NAME__, func, __LINE__, fmt, ##__VA_ARGS__);    \
        }                                                                                               \
    } while (0)
#define LOG_ERR(fmt, ...) LOG_ERR_AS(__func__, fmt, ##__VA_ARGS__)

#define LOG_INFO(fmt, ...)                                                                               \
    do {                                                                                                 \
        if (g_print_level >= 3) {                                                                        \
            std::fprintf(stderr, fmt, ##__VA_ARGS__);                                                    \
            elog_output(ELOG_LVL_INFO, "NO_TAG", __FILE_NAME__, __func__, __LINE__, fmt, ##__VA_ARGS__); \
        }                                                                                                \
    } while (0)

#define LOG_DBG(fmt, ...)                                                                                 \
    do {                                                                                                  \
        if (g_print_level >= 4) {                                                                         \
            std::fprintf(stderr, "%s" fmt "%s", tint(Tint::cyan), ##__VA_ARGS__, tint(Tint::end));        \
            elog_output(ELOG_LVL_DEBUG, "NO_TAG", __FILE_NAME__, __func__, __LINE__, fmt, ##__VA_ARGS__); \
        }                                                                                                 \
    } while (0)
