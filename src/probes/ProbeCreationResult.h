#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

class ProbeDescriptor;

// ProbeCreationResult: what one registration of probes found out: the descriptors that it made and
// everything that is wrong with the classes, for the user, in the order of occurrence. Class names
// in messages are dotted.
class ProbeCreationResult {
public:
    ProbeCreationResult() = default;
    // Deletes the descriptors that nobody has taken over.
    ~ProbeCreationResult();
    ProbeCreationResult(const ProbeCreationResult&) = delete;
    ProbeCreationResult& operator=(const ProbeCreationResult&) = delete;

    void addWarning(const ZString& text);
    void addError(const ZString& text);
    void addWarning(const ZString& className, const ZString& text);
    void addError(const ZString& className, const ZString& text);
    void addWarning(const ZString& className, const ZString& method, const ZString& text);
    void addError(const ZString& className, const ZString& method, const ZString& text);
    // index: of the parameter, counted from 0; the text counts from 1.
    void addWarning(const ZString& className, const ZString& method, int index,
                    const ZString& text);
    void addError(const ZString& className, const ZString& method, int index, const ZString& text);

    // The option says so.
    static bool treatWarningsAsErrors();
    bool isOK() const;
    // Each message on a line of its own; every line begins with the line break.
    ZString getAllMessages() const;
    ZString getAllErrors() const;
    // Dotted names, joined by ", ".
    ZString getScannedClasses() const;
    // Logs the classes that were added to the list of probes.
    void logRegisteredProbeClasses() const;

    // Moves all that another result holds behind what this one holds.
    void takeOver(ProbeCreationResult& other);

    ZVector<ProbeDescriptor*> descriptors; // a null was taken over
    ZVectorSafe<ZString> messages;
    ZVectorSafe<ZString> scannedClasses;    // dotted, of every class file read, a probe or not
    ZVectorSafe<ZString> registeredClasses; // dotted, of the descriptors taken over
    bool hasErrors = false;
};
