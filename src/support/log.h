// Console macros every module reports through: each writes to standard error
// when the print level allows it and also hands the line to the logger.
#pragma once

#include <cstdio>

#include "support/elog.h"

// LOG_ERR under a function name of the caller's choosing, for a helper that
// reports on behalf of the function that called it.
#define LOG_ERR_AS(func, fmt, ...)                                                                     \
    do {                                                                                               \
        if (g_print_level >= 2) {                                                                      \
            std::fprintf(stderr, "\033[0;31m[%s]-%d: \033[0m" fmt, func, __LINE__, ##__VA_ARGS__);     \
            std::fflush(stdout);                                                                       \
            elog_output(ELOG_LVL_WARN, "NO_TAG", __FILE_NAME__, func, __LINE__, fmt, ##__VA_ARGS__);   \
        }                                                                                              \
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
            std::fprintf(stderr, "\033[0;36m" fmt "\033[0m", ##__VA_ARGS__);                              \
            elog_output(ELOG_LVL_DEBUG, "NO_TAG", __FILE_NAME__, __func__, __LINE__, fmt, ##__VA_ARGS__); \
        }                                                                                                 \
    } while (0)
