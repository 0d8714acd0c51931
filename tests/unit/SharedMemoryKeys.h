// Keys of shared memory segments that belong to one running test.
#pragma once

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

// The number-th key, from 0 to 15, of this process. No other process has it; a segment that an
// earlier process of this id left behind is removed.
inline int ownSharedMemoryKey(int number) {
    const int pidBits = 22; // the kernel gives no larger ids
    const int key = 0x54000000 + ((getpid() & ((1 << pidBits) - 1)) << 4) + number;
    const int left = shmget(key, 0, 0);
    if (left != -1) {
        shmctl(left, IPC_RMID, nullptr);
    }
    return key;
}
