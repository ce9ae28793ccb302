// Owners of the C library's handles: a FILE, a cJSON tree and a text that
// cJSON printed. Each frees its handle when it goes out of scope.
#pragma once

#include <cstdio>
#include <memory>

#include <cjson/cJSON.h>

struct FileCloser {
    void operator()(FILE* f) const {
        if (f != nullptr) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

struct JsonDeleter {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonTree = std::unique_ptr<cJSON, JsonDeleter>;

struct JsonTextDeleter {
    void operator()(char* text) const { cJSON_free(text); }
};
using JsonText = std::unique_ptr<char, JsonTextDeleter>;
