// The debug texts a piece of code logs: run at debug level with stderr
// captured, then the cyan-coloured texts joined in order.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "support/log.h"

// Texts starting with `skip_prefix` (when not empty) are left out.
template <typename Body>
std::string debug_texts(Body&& body, std::string_view skip_prefix = {}) {
    const int saved = g_print_level;
    g_print_level = 4;
    tint_force(2, 1);  // the debug texts are found by their colour
    testing::internal::CaptureStderr();
    body();
    const std::string err = testing::internal::GetCapturedStderr();
    tint_force(2, -1);
    g_print_level = saved;

    constexpr std::string_view kCyan = "\033[0;36m";
    std::string texts;
    for (size_t at = 0; (at = err.find(kCyan, at)) != std::string::npos;) {
        at += kCyan.size();
        const size_t end = err.find("\033[0m", at);
        const std::string_view text = std::string_view(err).substr(at, end - at);
        if (skip_prefix.empty() || text.substr(0, skip_prefix.size()) != skip_prefix) texts += text;
    }
    return texts;
}
