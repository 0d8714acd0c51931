// Thread states are a row a second and thread: most of the file of a long recording of a program
// with many threads, although little but the newest ones is looked at.
#pragma once

class DB;

namespace vdk {

// The newest of them, of records of telemetry as a whole.
constexpr int MostThreadStates = 50000;

// Drops those of older records of telemetry beyond so many; the newest record keeps its own. A
// record that lost them says that there are none, as in an agent that had too many.
void limitThreadStates(DB& db, int most = MostThreadStates);

} // namespace vdk
