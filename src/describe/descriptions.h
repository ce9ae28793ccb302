// One line for each section and key of the API, for the description
// program only (these texts never reach the responder).
#pragma once

#include <string_view>

struct Description {
    std::string_view section, key, text;
};

// clang-format off
inline constexpr Description kSectionTexts[] = {
    {"image", "", "The picture: focus, exposure, white balance, adjustments, noise reduction, outputs, genlock, tally, digital zoom, presets, snapshots."},
};
inline constexpr Description kKeyTexts[] = {
    {"image", "focus_mode", "Focus: automatic or manual."},
};
// clang-format on

inline std::string_view section_description(std::string_view section) {
    for (const Description& d : kSectionTexts)
        if (d.section == section) return d.text;
    return {};
}
inline std::string_view key_description(std::string_view section, std::string_view key) {
    for (const Description& d : kKeyTexts)
        if (d.section == section && d.key == key) return d.text;
    return {};
}
