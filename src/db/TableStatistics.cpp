#include "db/TableStatistics.h"

#include <cstdio>
#include <cstring>

ZString getMegaBytesString(long bytes) {
    char text[64];
    snprintf(text, sizeof(text), "%6.1f", static_cast<double>(bytes) * 9.5367431640625e-7);
    return ZString(text);
}

ZString getTableStatistics(const char* name, int live, int capacity, long bytes) {
    // A user table's name has any length; the format pads it to 20.
    const size_t length = strlen(name) + 128;
    char* text = new char[length];
    snprintf(text, length, "%20s records=%8d/%8d allocated=", name, live, capacity);
    ZString line(text);
    delete[] text;
    line.append(getMegaBytesString(bytes));
    line.append(" MB");
    return line;
}
