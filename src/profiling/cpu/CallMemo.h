#pragma once

#include "profiling/cpu/CompiledCode.h"

// CallMemo: the frames of calls in compiled code that stacks returned to lately, each in two cache
// lines: a thread finds nothing of a profiler's memory in its caches after milliseconds of its own
// work, and every line that has to be fetched counts. For handlers: no lock, no allocation; one
// that finds an entry being written goes without it.
namespace CallMemo {

const int MOST_FRAMES = 8;

// As CompiledCode::callAt; looks there and keeps the answer where it does not know.
CompiledCode::Frame callAt(uintptr_t pc, CallFrame* frames, int most);

} // namespace CallMemo
