// File sink of the logger: appends lines to one file and rotates it into
// name.0, name.1, ... once it grows past its maximum size.
#pragma once

#include <cstddef>

// Opens `name` for appending. max_rotate below 1 means: never rotate, drop
// lines once the file is full. Returns 0, or -1 when the file cannot be opened.
int elog_file_init(const char* name, size_t max_size, int max_rotate);
void elog_file_write(const char* log, size_t size);
// Shifts name.(n-1) to name.n for n = max_rotate-1 .. 1 and the file itself to
// name.0, then reopens an empty file. False when a rename failed.
bool elog_file_rotate();
void elog_file_deinit();
