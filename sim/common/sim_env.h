// Shared plumbing of the simulated camera peers: the run directory, the
// journals, the fault-switch control files, System V helpers and the
// start/stop protocol (print "ready", exit on SIGTERM/SIGINT).
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// CAMERA_RUN_DIR, or "." when unset.
const std::string& run_dir();
// Which of several simulated cameras this is (CAMERA_INDEX, 1 to 78;
// default 1): the cameras differ in address, MAC, serial number and name.
int camera_index();
std::string run_path(std::string_view name);

// Append-only line journal; every line is flushed at once so that a test
// reading the file sees it as soon as the peer has acted.
class Journal {
public:
    explicit Journal(std::string_view name);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    void line(std::string_view text);
    // Raw append without a line end (the log collector keeps the text as sent).
    void append(const char* data, size_t len);

private:
    std::mutex mu_;
    int fd_ = -1;
};

// Bytes as lower-case hex pairs separated by single spaces.
std::string hex_bytes(const uint8_t* data, size_t len);

// Fault switches: the control file's lines, with surrounding blanks trimmed
// and empty lines dropped, as they stand at the call (the file is looked at
// every time and read again when it changed). A missing file gives no
// switches. The list stays valid until the thread's next call.
const std::vector<std::string>& read_switches(std::string_view ctl_name);
bool has_switch(const std::vector<std::string>& sw, std::string_view name);
// Value of a switch of the form "name N" (e.g. "late 200"); -1 when absent.
long switch_value(const std::vector<std::string>& sw, std::string_view name);

// ---- System V ---------------------------------------------------------------

// Queue of this key: the existing one, else a new one with mode 0666.
int queue_open(int key);

// Shared segment attached for the life of the owner.
class Segment {
public:
    Segment() = default;
    ~Segment();
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;

    // Create (size, mode) or attach an existing segment of any size.
    bool create_or_attach(int key, size_t size, int mode);
    // Attach an existing segment, polling every 10 ms until it exists or
    // stop is requested.
    bool wait_attach(int key);

    uint8_t* data() const { return base_; }
    size_t size() const { return size_; }
    int id() const { return id_; }
    // Bounds-checked view of [offset, offset + len).
    uint8_t* at(long offset, long len) const;

private:
    int id_ = -1;
    uint8_t* base_ = nullptr;
    size_t size_ = 0;
};

// ---- life cycle -----------------------------------------------------------

// Blocks SIGTERM/SIGINT in the calling thread (call before starting worker
// threads, so that they inherit the mask) and ignores SIGPIPE.
void block_stop_signals();
// Announces readiness on stdout ("ready", flushed).
void say_ready();
// Waits for SIGTERM or SIGINT; sets the stop flag.
void wait_for_stop();
bool stop_requested();

void sleep_ms(long ms);

}  // namespace sim
