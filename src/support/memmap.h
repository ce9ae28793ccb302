// Physical memory through the chip's debug device, for register access, and
// ordinary files mapped into memory.
#pragma once

#include <cstdint>

// A process address for `size` bytes at physical address `phys` (mapped from
// the device, or taken from a mapping that already covers them), or 0.
uintptr_t memmap(uint32_t phys, uint32_t size);
// Lets go of the mapping that contains `addr`: 0, or -1 when none does.
int memunmap(uintptr_t addr);
// One 32-bit register write or read at a physical address.
int ambmm(uint32_t phys, uint32_t value);  // 0 or -1
int64_t ambmd(uint32_t phys);              // the value, or -1
// `length` bytes of a file mapped shared, read-write (created when missing)
// or read-only; 0 on failure.
void* mmapfile(const char* path, uint32_t length);
void* mmapfile_r(const char* path, uint32_t length);
