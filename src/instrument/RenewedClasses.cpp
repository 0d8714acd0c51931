#include "instrument/RenewedClasses.h"

#include "core/ground/Globals.h"

#include <string.h>

namespace {

// Few: classes that users have changed while the JVM ran. ourLock.
ZVectorSafe<ZString>& ourNames = *new ZVectorSafe<ZString>();
ZVector<ZVector<unsigned char>*>& ourBytes = *new ZVector<ZVector<unsigned char>*>();

// Place of a class; behind the others if it has none. Caller holds ourLock.
int placeOf(const ZString& name) {
    int i = 0;
    while (i < ourNames.getSize() && ourNames[i] != name) {
        i++;
    }
    return i;
}

} // namespace

ZVector<unsigned char>* RenewedClasses::replace(const ZString& name,
                                                const ZVector<unsigned char>& bytes) {
    auto* const copy = new ZVector<unsigned char>(bytes.getSize() + 1);
    memcpy(copy->extend(bytes.getSize()), bytes.data(), static_cast<size_t>(bytes.getSize()));
    LockHolder lock(ourLock);
    const int place = placeOf(name);
    if (place == ourNames.getSize()) {
        ourNames.push(name);
        ourBytes.push(nullptr);
    }
    ZVector<unsigned char>* const before = ourBytes[place];
    ourBytes.set(place, copy);
    return before;
}

void RenewedClasses::restore(const ZString& name, ZVector<unsigned char>* before) {
    LockHolder lock(ourLock);
    const int place = placeOf(name);
    delete ourBytes[place];
    ourBytes.set(place, before);
}

void RenewedClasses::forget(ZVector<unsigned char>* before) {
    delete before;
}

const ZVector<unsigned char>* RenewedClasses::find(const ZString& name) {
    LockHolder lock(ourLock);
    const int place = placeOf(name);
    return place == ourNames.getSize() ? nullptr : ourBytes[place];
}

bool RenewedClasses::areThere() {
    LockHolder lock(ourLock);
    return !ourNames.isEmpty();
}
