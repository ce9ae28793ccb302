// Shell, process and storage utilities.
#pragma once

#include <cstddef>
#include <cstdint>

// Runs a shell line (through the installed platform's shell): its status.
int pox_system(const char* command);
// Runs a command the same way and collects what it prints on standard output
// into `out` (cut to size - 1 bytes, always terminated). Returns the exit
// status as pclose reports it, or -1 when the command cannot be started.
int pox_popen(const char* command, char* out, size_t size);
void process_info_print(const char* program_path);
int get_process_name(char* out, size_t size);
int process_is_running(const char* name);
int process_get_pid(const char* name);
int hex_print(const uint8_t* data, int count);
int hex_dump(const uint8_t* data, int count);
void print_timestamp();
int log_file_limit(const char* path);
int log_append_hex(const char* path, const uint8_t* data, int count, const char* label);
int log_append_text(const char* path, const char* text, int length, const char* label);
int log_append_line(const char* path, const char* text);
int file_in_use(const char* path);
// Reads at most size - 1 bytes of a file into `buffer` and terminates them:
// the bytes read, or -1 when the file cannot be opened.
long file_read_text(const char* path, char* buffer, size_t size);
int daemonize();
long long free_space_check(const char* path);
int msg_size_check(int qid, int size);

// Section-and-key files. Statuses: 1 found, -ENOENT missing section or key,
// -ECHILD bad argument or unreadable file, -EACCES / -EAGAIN write failures.
int ini_get_value(const char* path, const char* section, const char* key, char* out, size_t out_size);
int ini_set_value(const char* path, const char* section, const char* key, const char* value);
int ini_get_sections(const char* path, char (*out)[64], int max);
int ini_get_keys(const char* path, const char* section, char (*out)[64], int max);
int ini_copy_file(const char* from, const char* to);

inline constexpr const char* kWebVersion = "650";
