// Section-and-key files ("[section]" lines, then "key=value" lines): read,
// changed in place through a temporary beside the file, listed, copied.
#include "support/support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/log.h"
#include "support/owners.h"

namespace {

constexpr size_t kIniLineMax = 1024;

struct IniLine {
    enum class Kind { Other, Section, Entry } kind = Kind::Other;
    std::string_view name;   // section name or key
    std::string_view value;  // entry value
};

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trim(std::string_view s) {
    size_t b = s.find_first_not_of(kBlanks);
    if (b == std::string_view::npos) return {};
    size_t e = s.find_last_not_of(kBlanks);
    return s.substr(b, e - b + 1);
}

IniLine classify(std::string_view raw) {
    IniLine out;
    if (raw.size() > kIniLineMax) return out;  // too long to be ours: kept, never matched
    std::string_view s = trim(raw);
    if (s.size() >= 2 && s.front() == '[' && s.back() == ']') {
        out.kind = IniLine::Kind::Section;
        out.name = s.substr(1, s.size() - 2);
        return out;
    }
    size_t eq = s.find('=');
    if (eq == std::string_view::npos) return out;
    std::string_view key = trim(s.substr(0, eq));
    if (key.empty()) return out;
    out.kind = IniLine::Kind::Entry;
    out.name = key;
    out.value = trim(s.substr(eq + 1));
    return out;
}

// Whole file as lines without their line ends; false when it cannot be read.
bool read_lines(const char* path, std::vector<std::string>& lines) {
    FilePtr fp(std::fopen(path, "r"));
    if (!fp) return false;
    char* buf = nullptr;
    size_t cap = 0;
    ssize_t n;
    while ((n = ::getline(&buf, &cap, fp.get())) >= 0) {
        std::string_view line(buf, static_cast<size_t>(n));
        if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
        lines.emplace_back(line);
    }
    std::free(buf);
    return true;
}

struct IniScan {
    bool readable = false;
    bool key_found = false;
    std::string value;
};

// Fed the lines in file order, tells which of them is an entry of the key
// inside the section.
class KeyInSection {
public:
    KeyInSection(std::string_view section, std::string_view key) : section_(section), key_(key) {}
    bool operator()(const IniLine& l) {
        if (l.kind == IniLine::Kind::Section) inside_ = l.name == section_;
        return inside_ && l.kind == IniLine::Kind::Entry && l.name == key_;
    }

private:
    std::string_view section_;
    std::string_view key_;
    bool inside_ = false;
};

IniScan ini_scan(const std::vector<std::string>& lines, std::string_view section, std::string_view key) {
    IniScan scan;
    scan.readable = true;
    KeyInSection is_key(section, key);
    for (const auto& raw : lines) {
        const IniLine l = classify(raw);
        if (is_key(l)) {
            scan.key_found = true;
            scan.value = l.value;
            break;
        }
    }
    return scan;
}

bool args_ok(const char* a, const char* b) { return a && b && *a && *b; }

// Names and values that would break the line structure of the file.
bool bad_text(std::string_view s, std::string_view forbidden) {
    return s.find_first_of(forbidden) != std::string_view::npos;
}

int sync_file(FILE* fp) {
    if (std::fflush(fp) != 0) return -1;
    int fd = fileno(fp);
    if (::fsync(fd) != 0) return -1;
    ::syncfs(fd);
    return 0;
}

// Replaces the file by `lines` (each written with its line end): through a
// temporary beside the file and a rename, so the file is never half written;
// every failure removes the temporary again. Lines are written byte for
// byte, NUL bytes included. The file keeps its mode (a new one gets 0644).
int ini_write_lines(const char* path, const std::vector<std::string_view>& lines) {
    std::string tmp = std::string(path) + ".XXXXXX";
    const int fd = ::mkstemp(tmp.data());
    if (fd < 0) return -EAGAIN;
    struct stat st {};
    ::fchmod(fd, ::stat(path, &st) == 0 ? st.st_mode & 07777 : 0644);
    FilePtr fp(::fdopen(fd, "w"));
    if (!fp) {
        ::close(fd);
        ::unlink(tmp.c_str());
        return -EAGAIN;
    }
    bool written = true;
    for (const auto line : lines)
        written = written && std::fwrite(line.data(), 1, line.size(), fp.get()) == line.size() &&
                  std::fputc('\n', fp.get()) != EOF;
    written = written && sync_file(fp.get()) == 0;
    const bool closed = std::fclose(fp.release()) == 0;
    if (!written || !closed || ::rename(tmp.c_str(), path) != 0) {
        ::unlink(tmp.c_str());
        LOG_ERR("ini rewrite of %s failed\n", path);
        return -EAGAIN;
    }
    return 0;
}

// A missing key is appended with its section header at the end, even when
// the section exists already: readers find it in the second block. A last
// line without its line end gets one, so the header never joins it.
int ini_append_section(const char* path, const std::vector<std::string>& lines, const char* section,
                       const char* key, const char* value) {
    std::vector<std::string_view> out(lines.begin(), lines.end());
    const std::string header = std::string("[") + section + "]";
    const std::string entry = std::string(key) + "=" + value;
    out.push_back(header);
    out.push_back(entry);
    return ini_write_lines(path, out);
}

// Rewrites the file with the key's line in that section replaced (value
// null: removed), every other line kept.
int ini_rewrite(const char* path, const std::vector<std::string>& lines, std::string_view section,
                std::string_view key, const char* value) {
    std::vector<std::string_view> out;
    out.reserve(lines.size());
    const std::string entry = value ? std::string(key) + "=" + value : std::string();
    KeyInSection is_key(section, key);
    for (const auto& raw : lines) {
        if (is_key(classify(raw))) {
            if (value) out.push_back(entry);
            continue;
        }
        out.push_back(raw);
    }
    return ini_write_lines(path, out);
}

}  // namespace

int ini_get_value(const char* path, const char* section, const char* key, char* out, size_t out_size) {
    if (!path || !section || !key || !out || out_size == 0) return -ECHILD;
    out[0] = '\0';
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return -ECHILD;
    IniScan scan = ini_scan(lines, section, key);
    if (!scan.key_found) return -ENOENT;
    size_t n = std::min(scan.value.size(), out_size - 1);
    std::memcpy(out, scan.value.data(), n);
    out[n] = '\0';
    return 1;
}

int ini_set_value(const char* path, const char* section, const char* key, const char* value) {
    if (!path || !args_ok(section, key)) return -ECHILD;
    if (bad_text(section, "]\r\n") || bad_text(key, "=[\r\n") || (value && bad_text(value, "\r\n")))
        return -ECHILD;
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) {
        // A file that is not there yet is an empty one; one we may not read is an error.
        if (errno != ENOENT) return -ECHILD;
        if (!value) return -ENOENT;
        return ini_append_section(path, {}, section, key, value);
    }
    IniScan scan = ini_scan(lines, section, key);
    if (scan.key_found && value && scan.value == trim(value)) return 0;  // unchanged: no write
    if (!scan.key_found && !value) return -ENOENT;
    if (!scan.key_found) return ini_append_section(path, lines, section, key, value);
    return ini_rewrite(path, lines, section, key, value);
}

int ini_get_sections(const char* path, char (*out)[64], int max) {
    if (!path || !out || max <= 0) return -ECHILD;
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return -ECHILD;
    int count = 0;
    for (const auto& raw : lines) {
        IniLine l = classify(raw);
        if (l.kind != IniLine::Kind::Section) continue;
        if (count == max) break;
        size_t n = std::min(l.name.size(), sizeof(out[0]) - 1);
        std::memcpy(out[count], l.name.data(), n);
        out[count][n] = '\0';
        ++count;
    }
    return count;
}

int ini_get_keys(const char* path, const char* section, char (*out)[64], int max) {
    if (!path || !section || !out || max <= 0) return -ECHILD;
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return -ECHILD;
    int count = 0;
    bool inside = false;
    bool found = false;
    for (const auto& raw : lines) {
        IniLine l = classify(raw);
        if (l.kind == IniLine::Kind::Section) {
            inside = l.name == section;
            found |= inside;
        } else if (inside && l.kind == IniLine::Kind::Entry && count < max) {
            size_t n = std::min(l.name.size(), sizeof(out[0]) - 1);
            std::memcpy(out[count], l.name.data(), n);
            out[count][n] = '\0';
            ++count;
        }
    }
    return found ? count : -ENOENT;
}

int ini_copy_file(const char* from, const char* to) {
    if (!from || !to) return -1;
    FilePtr in(std::fopen(from, "rb"));
    if (!in) return -1;
    FilePtr out(std::fopen(to, "wb"));
    if (!out) return -1;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), in.get())) > 0)
        if (std::fwrite(buf, 1, n, out.get()) != n) return -1;
    if (std::ferror(in.get()) || sync_file(out.get()) != 0) return -1;
    return std::fclose(out.release()) == 0 ? 0 : -1;
}
