#include "offline/OfflineGlobals.h"

ZString ourAlternateTempDirForBigIntArraysUtf8;
std::atomic<long> ourIndexFileFullLength(0);
