// Feature slots of the image section: slot n is camera preset 230 + n, its
// "size", "x" and "y" are kept in /opt/params/feature.ini under section "n".
#pragma once

struct cJSON;

inline constexpr int kFeatureSlots = 8;
inline constexpr int kFeaturePresetBase = 230;

// Answers the slots asked for: `request` true (or null) means slots 0 to 7,
// an object names slots by number, each with the value true. A slot whose
// preset is not stored, whose values are missing, or that was asked for with
// anything but true answers false. Null only when nothing can be answered
// (a non-object, non-true request or no memory).
cJSON* json_feature_read(const cJSON* request);

// Stores the slots of `request` (an object of slot number -> {"size","x","y"},
// all numbers): the current position as preset 230 + n, the values in the
// slot file. `*answer` receives an object of the stored slots as they now
// read from the file, a bad slot answering false (null only without memory).
// Returns 0 when every slot was stored, -1 otherwise.
int json_feature_write(const cJSON* request, cJSON** answer);
