#pragma once

#include "heapfile/HeapModel.h"
#include "heapfile/IndexStream.h"

// The description of a heap in an index: all of a HeapModel but its columns. What is read is
// compared with what there is, so that any bytes give a sound model or a HeapReadError.
void writeIndexModel(IndexOutput& out, const HeapModel& model);
void readIndexModel(IndexInput& in, HeapModel& model);
