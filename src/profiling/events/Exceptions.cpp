#include "profiling/events/Exceptions.h"

#include "db/DB.h"

void Exceptions::clearExceptions() {
    ourDB->clearTableAndTellReaders(SLOT_Exception);
}
