#include "core/ground/ZVector.h"

#include "core/ground/Logger.h"
#include "core/ground/ZString.h"

void zvectorFail(const char* op, int i, int n) {
    ZString text("op=");
    text.append(op);
    text.append("\n  ");
    text.appendLong(i);
    text.append("\n  ");
    text.appendLong(n);
    Logger::error(text, "ZVector", 6);
}

int qsortCompare(const void* left, const void* right) {
    return strcmp(static_cast<const ZString*>(left)->c_str(),
                  static_cast<const ZString*>(right)->c_str());
}
