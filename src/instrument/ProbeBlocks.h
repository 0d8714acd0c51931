#pragma once

#include "instrument/ProbeCode.h"
#include "instrument/ProbeWeaving.h"

// ProbeBlocks: the code that one probe brings into one method: at the entry, in front of each
// return, and in a handler behind the end. Or, with the references of a guard, what guards a
// callback of the probe.
class ProbeBlocks {
public:
    // A local variable that the blocks use; in frames where it holds its value from the entry on.
    struct NewLocal {
        VerificationType type;
        bool inFrames;
        int slot;
    };

    ProbeBlocks(ClassFile* owner, const MethodInfo* target, const ProbeDescriptor& probe,
                const ProbeReferences& poolReferences);
    // hasSwitch: the method has one, so that lengths have to be multiples of 4. touchedLocals: by
    // slot, what no longer holds a parameter at the exits. New variables begin at firstSlot.
    void generate(bool methodHasSwitch, const bool* touchedLocals, int firstSlot);

    // The next free slot behind all new variables.
    int getNextSlot() const { return nextSlot; }
    const ZVector<NewLocal>& getNewLocals() const { return newLocals; }
    // The variable with the result of onEnter, which is the first, or null.
    const NewLocal* getResult() const { return resultSlot < 0 ? nullptr : &newLocals[0]; }
    // Without its padding.
    int getEntryCodeSize() const { return entryCodeSize; }
    const ZString& getReturnType() const { return returnType; }

    ProbeCode entry;
    ProbeCode exit;
    ProbeCode handler;

private:
    int newLocal(const ZString& type, bool inFrames);
    void fillParamIndices();
    int thisFor(const ProbeCode& block) const { return &block == &entry ? 0 : exitThis; }
    void testReceiver(ProbeCode& block) const;
    void noteSaved(const ZVector<CallbackParameter>* parameters);
    void insertSaveOnExitParamsCode();
    void insertEntryCode(const ZString& enterType);
    void insertOnReturnCode();
    void insertOnExceptionCode();
    void insertGuard();
    void insertGuardCall(ProbeCode& block, int reference, const char* guardDescriptor) const;
    void answerWithoutCallback();
    void loadCallbackParameters(ProbeCode& block, const ZVector<CallbackParameter>* parameters,
                                const ZString& callbackDescriptor, const ZVector<int>& locals,
                                int valueSlot);
    void loadCallbackParameter(ProbeCode& block, const CallbackParameter& parameter,
                               const ZString& calleeType, const ZVector<int>& locals,
                               int valueSlot);

    ClassFile* classFile;
    const MethodInfo* method;
    const ProbeDescriptor& descriptor;
    const ProbeReferences& references;
    const bool isTested;
    bool hasSwitch;
    const bool* touched;
    int nextSlot;
    int resultSlot;
    int exitThis; // the slot of `this` at the exits
    int entryCodeSize;
    ZVectorSafe<ZString> types;
    ZString returnType;
    ZVector<int> paramLocals;
    ZVector<int> exitLocals;
    ZVector<NewLocal> newLocals;
};
