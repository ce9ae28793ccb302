// The process-private lock that serialises one process's use of a channel.
#pragma once

using SemHandl_t = void*;

SemHandl_t MakeSem();
int SemWait(SemHandl_t sem);
int SemRelease(SemHandl_t sem);
int DestroySem(SemHandl_t sem);
