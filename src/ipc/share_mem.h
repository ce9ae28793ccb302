// A System V shared-memory segment of 27 slices, read and written through
// bounded copies.
#pragma once

int ShareMemInit(int key);
int pShareMemInit(int key);
int ShareMemRead(int offset, void* buf, int length);
int ShareMemWrite(int offset, const void* buf, int length);
