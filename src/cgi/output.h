// The one place that talks to the FastCGI standard-I/O layer. Handlers print
// their replies and read request bodies through these calls, so that the same
// handlers run unchanged inside unit tests (see OutputCapture).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/platform.h"

// Waits for the next request; negative when no further request will come.
int out_accept();
// Ends the current request: the reply goes out and the FastCGI layer frees
// what it held for the request (its streams and parameters).
void out_finish();

int out_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
size_t out_write(const void* data, size_t size);

// Request body input.
int in_getchar();  // next byte or EOF (-1)
size_t in_read(void* buffer, size_t size);

// Files opened through the FastCGI layer (firmware upload).
struct OutFile;
OutFile* out_fopen(const char* path, const char* mode);
size_t out_fwrite(const void* data, size_t size, OutFile* file);
int out_fclose(OutFile* file);

// While one of these lives, output goes to `reply` and input comes from
// `body` instead of the FastCGI streams (through the platform's streams).
class OutputCapture {
public:
    explicit OutputCapture(std::string_view body = {});
    ~OutputCapture();
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    const std::string& text() const { return reply_; }
    void clear() { reply_.clear(); }

private:
    static size_t write(const void* data, size_t size);
    static size_t read(void* buffer, size_t size);
    std::string reply_;
    std::string body_;
    size_t pos_ = 0;
    OutputCapture* previous_;
    PlatformPatch patch_;
};
