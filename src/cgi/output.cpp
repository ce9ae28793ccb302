#include "cgi/output.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

// Last: it redefines the standard-I/O names for everything after it.
#include <fcgi_stdio.h>

namespace {
OutputCapture* g_capture = nullptr;
}

OutputCapture::OutputCapture(std::string_view body) : body_(body) { g_capture = this; }
OutputCapture::~OutputCapture() { g_capture = nullptr; }

int out_accept() { return FCGI_Accept(); }
void out_finish() { FCGI_Finish(); }

int out_printf(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    int n;
    if (g_capture) {
        char small[1024];
        va_list copy;
        va_copy(copy, ap);
        n = vsnprintf(small, sizeof small, format, copy);
        va_end(copy);
        if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
            g_capture->reply_.append(small, static_cast<size_t>(n));
        } else if (n >= 0) {
            std::string big(static_cast<size_t>(n) + 1, '\0');
            vsnprintf(big.data(), big.size(), format, ap);
            g_capture->reply_.append(big.data(), static_cast<size_t>(n));
        }
    } else {
        n = FCGI_vprintf(format, ap);
    }
    va_end(ap);
    return n;
}

size_t out_write(const void* data, size_t size) {
    if (g_capture) {
        g_capture->reply_.append(static_cast<const char*>(data), size);
        return size;
    }
    return FCGI_fwrite(const_cast<void*>(data), 1, size, FCGI_stdout);
}

int in_getchar() {
    if (g_capture) {
        if (g_capture->pos_ >= g_capture->body_.size()) return EOF;
        return static_cast<unsigned char>(g_capture->body_[g_capture->pos_++]);
    }
    return FCGI_getchar();
}

size_t in_read(void* buffer, size_t size) {
    if (g_capture) {
        size_t n = std::min(size, g_capture->body_.size() - g_capture->pos_);
        std::memcpy(buffer, g_capture->body_.data() + g_capture->pos_, n);
        g_capture->pos_ += n;
        return n;
    }
    return FCGI_fread(buffer, 1, size, FCGI_stdin);
}

struct OutFile {
    FCGI_FILE* file;
};

OutFile* out_fopen(const char* path, const char* mode) {
    FCGI_FILE* f = FCGI_fopen(path, mode);
    return f ? new OutFile{f} : nullptr;
}

size_t out_fwrite(const void* data, size_t size, OutFile* file) {
    return file ? FCGI_fwrite(const_cast<void*>(data), 1, size, file->file) : 0;
}

int out_fclose(OutFile* file) {
    if (!file) return EOF;
    int rc = FCGI_fclose(file->file);
    delete file;
    return rc;
}
