#include "probes/ProbeCreationResult.h"

#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "probes/ProbeDescriptor.h"

namespace {

const char WARNING[] = "Warning: ";
const char ERROR[] = "Error: ";

ZString inClass(const ZString& className, const ZString& text) {
    return ZString("probe class ") + className + ": " + text;
}

ZString inMethod(const ZString& className, const ZString& method, const ZString& text) {
    return ZString("probe class ") + className + ", method " + method + ": " + text;
}

ZString inParameter(const ZString& className, const ZString& method, int index,
                    const ZString& text) {
    return ZString("probe class ") + className + ", method " + method + ", parameter #" +
           longToString(index + 1) + ": " + text;
}

// The texts that begin with the prefix, each behind a line break.
ZString joinArray(const ZVectorSafe<ZString>& texts, const char* prefix) {
    ZString joined;
    for (int i = 0; i < texts.getSize(); i++) {
        if (texts[i].startsWith(prefix)) {
            joined.append("\n");
            joined.append(texts[i]);
        }
    }
    return joined;
}

void pushAll(const ZVectorSafe<ZString>& from, ZVectorSafe<ZString>& to) {
    for (int i = 0; i < from.getSize(); i++) {
        to.push(from[i]);
    }
}

} // namespace

ProbeCreationResult::~ProbeCreationResult() {
    for (int i = 0; i < descriptors.getSize(); i++) {
        delete descriptors[i];
    }
}

void ProbeCreationResult::addWarning(const ZString& text) {
    messages.push(ZString(WARNING) + text);
}

void ProbeCreationResult::addError(const ZString& text) {
    hasErrors = true;
    messages.push(ZString(ERROR) + text);
}

void ProbeCreationResult::addWarning(const ZString& className, const ZString& text) {
    addWarning(inClass(className, text));
}

void ProbeCreationResult::addError(const ZString& className, const ZString& text) {
    addError(inClass(className, text));
}

void ProbeCreationResult::addWarning(const ZString& className, const ZString& method,
                                     const ZString& text) {
    addWarning(inMethod(className, method, text));
}

void ProbeCreationResult::addError(const ZString& className, const ZString& method,
                                   const ZString& text) {
    addError(inMethod(className, method, text));
}

void ProbeCreationResult::addWarning(const ZString& className, const ZString& method, int index,
                                     const ZString& text) {
    addWarning(inParameter(className, method, index, text));
}

void ProbeCreationResult::addError(const ZString& className, const ZString& method, int index,
                                   const ZString& text) {
    addError(inParameter(className, method, index, text));
}

bool ProbeCreationResult::treatWarningsAsErrors() {
    return ourOptions != nullptr && ourOptions->probeWarningsAsErrors;
}

bool ProbeCreationResult::isOK() const {
    return treatWarningsAsErrors() ? messages.isEmpty() : !hasErrors;
}

ZString ProbeCreationResult::getAllMessages() const {
    return joinArray(messages, "");
}

ZString ProbeCreationResult::getAllErrors() const {
    return joinArray(messages, treatWarningsAsErrors() ? "" : ERROR);
}

ZString ProbeCreationResult::getScannedClasses() const {
    ZString joined;
    for (int i = 0; i < scannedClasses.getSize(); i++) {
        joined.append(i == 0 ? "" : ", ");
        joined.append(scannedClasses[i]);
    }
    return joined;
}

void ProbeCreationResult::logRegisteredProbeClasses() const {
    ZString text("Successfully registered probe classes: ");
    for (int i = 0; i < registeredClasses.getSize(); i++) {
        text.append("\n  Registered: ");
        text.append(registeredClasses[i]);
    }
    Logger::message(text);
}

void ProbeCreationResult::takeOver(ProbeCreationResult& other) {
    pushAll(other.messages, messages);
    pushAll(other.scannedClasses, scannedClasses);
    pushAll(other.registeredClasses, registeredClasses);
    hasErrors = hasErrors || other.hasErrors;
    for (int i = 0; i < other.descriptors.getSize(); i++) {
        descriptors.push(other.descriptors[i]);
        other.descriptors.set(i, nullptr);
    }
    other.descriptors.clear();
}
