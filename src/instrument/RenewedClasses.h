#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

// RenewedClasses: classes that came once more, with other code, as probes of users do.
//
// DESCRIPTION
//   On JVMs such as 17 a class that a hook has changed, and that is redefined then, falls back to
//   its first code with the next retransformation: the JVM offers the bytes of before to the
//   hooks. So the newest bytes are kept here, and the hook works on them. They stay as long as the
//   JVM, as such a class does.
//
// All are classes of the boot loader; names are internal. The calls take ourLock.
class RenewedClasses {
public:
    // Ahead of the redefinition, whose own bytes the hook must not replace. Gives what was kept of
    // the class before, for restore(); null for a class that had not come again.
    static ZVector<unsigned char>* replace(const ZString& name,
                                           const ZVector<unsigned char>& bytes);
    // Behind a redefinition that has failed; takes what replace() gave.
    static void restore(const ZString& name, ZVector<unsigned char>* before);
    // Behind one that has not.
    static void forget(ZVector<unsigned char>* before);

    // The newest bytes, null for other classes. They are there as long as the caller holds ourLock.
    static const ZVector<unsigned char>* find(const ZString& name);
    static bool areThere();
};
