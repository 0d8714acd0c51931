#include "probes/Probes.h"

ZVectorSafe<ZString>& Probes::ourProbeClassPathElements = *new ZVectorSafe<ZString>();
