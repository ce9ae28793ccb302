#include "cgi/output.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "platform/platform.h"

// Last: it redefines the standard-I/O names for everything after it.
#include <fcgi_stdio.h>

namespace {

OutputCapture* g_capture = nullptr;

size_t real_write(const void* data, size_t size) {
    return FCGI_fwrite(const_cast<void*>(data), 1, size, FCGI_stdout);
}
size_t real_read(void* buffer, size_t size) { return FCGI_fread(buffer, 1, size, FCGI_stdin); }

}  // namespace

size_t OutputCapture::write(const void* data, size_t size) {
    g_capture->reply_.append(static_cast<const char*>(data), size);
    return size;
}

size_t OutputCapture::read(void* buffer, size_t size) {
    OutputCapture& c = *g_capture;
    const size_t n = std::min(size, c.body_.size() - c.pos_);
    std::memcpy(buffer, c.body_.data() + c.pos_, n);
    c.pos_ += n;
    return n;
}

OutputCapture::OutputCapture(std::string_view body)
    : body_(body), previous_(g_capture), patch_([](Platform& p) {
          p.out_write = write;
          p.in_read = read;
      }) {
    g_capture = this;
}
OutputCapture::~OutputCapture() { g_capture = previous_; }

int out_accept() { return FCGI_Accept(); }
void out_finish() { FCGI_Finish(); }

int out_printf(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    int n;
    if (const auto write = platform().out_write) {
        char small[1024];
        va_list copy;
        va_copy(copy, ap);
        n = vsnprintf(small, sizeof small, format, copy);
        va_end(copy);
        if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
            write(small, static_cast<size_t>(n));
        } else if (n >= 0) {
            std::string big(static_cast<size_t>(n) + 1, '\0');
            vsnprintf(big.data(), big.size(), format, ap);
            write(big.data(), static_cast<size_t>(n));
        }
    } else {
        n = FCGI_vprintf(format, ap);
    }
    va_end(ap);
    return n;
}

size_t out_write(const void* data, size_t size) {
    return platform_pick(&Platform::out_write, real_write)(data, size);
}

int in_getchar() {
    if (const auto read = platform().in_read) {
        unsigned char c = 0;
        return read(&c, 1) == 1 ? c : EOF;
    }
    return FCGI_getchar();
}

size_t in_read(void* buffer, size_t size) {
    return platform_pick(&Platform::in_read, real_read)(buffer, size);
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
