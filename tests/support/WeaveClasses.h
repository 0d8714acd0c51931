#pragma once

#include "instrument/ProbeWeaving.h"

#include <memory>
#include <string>
#include <vector>

// Probes put together by hand, and classes woven with them.

// A callback: its descriptor, and the kind of each parameter; "1" to "9" for parameters by number.
struct ProbeCallback {
    std::string descriptor;
    std::vector<CallbackParameter> parameters;
};

inline CallbackParameter parameter(int number) {
    return {CALLBACK_PARAM, number};
}
inline CallbackParameter kind(CallbackParameterKind value) {
    return {value, -1};
}

struct ProbeOutline {
    std::string probeClass = "p/Probe";
    ProbeCallback enter;
    ProbeCallback exit;
    ProbeCallback thrown;
    bool swallows = false;
    std::string replaced; // descriptor of the value that is replaced
    std::string instanceOf;
    std::string methods = "*";
    std::vector<std::string> exceptions;
};

inline std::unique_ptr<ProbeDescriptor> makeProbe(const ProbeOutline& outline) {
    bool usesResult = false;
    const auto list = [&](const ProbeCallback& callback) {
        if (callback.descriptor.empty()) {
            return static_cast<ZVector<CallbackParameter>*>(nullptr);
        }
        auto* const parameters = new ZVector<CallbackParameter>();
        for (const CallbackParameter& one : callback.parameters) {
            parameters->push(one);
            usesResult = usesResult || one.kind == CALLBACK_ON_ENTER_RESULT;
        }
        return parameters;
    };
    ZVector<CallbackParameter>* const enter = list(outline.enter);
    ZVector<CallbackParameter>* const exit = list(outline.exit);
    ZVector<CallbackParameter>* const thrown = list(outline.thrown);
    ZVectorSafe<ZString> exceptions;
    for (const std::string& name : outline.exceptions) {
        exceptions.push(ZString(name.c_str()));
    }
    const bool replaces =
        !outline.exit.descriptor.empty() && outline.exit.descriptor.find(")V") == std::string::npos;
    std::unique_ptr<ProbeDescriptor> probe(
        new ProbeDescriptor(outline.probeClass.c_str(), outline.enter.descriptor.c_str(),
                            outline.exit.descriptor.c_str(), outline.thrown.descriptor.c_str(),
                            enter, exit, thrown, usesResult, replaces, outline.swallows,
                            outline.replaced.c_str(), outline.instanceOf.c_str(), exceptions));
    probe->addMethodPattern("*", outline.methods.c_str(), "*", "*", "", "");
    return probe;
}

// Accepts every annotation; keeps the methods that are marked.
class RecordingHost : public WeavingHost {
public:
    bool hasMatchingAnnotation(MethodInfo*, const ZString&) override { return true; }
    void methodHasProbe(const ZString& className, const ZString& methodName,
                        const ZString& parameters) override {
        marked += std::string(className.c_str()) + "." + methodName.c_str() + parameters.c_str();
    }
    std::string marked;
};

// Weaves all probes into the class, one after the other. Whether any changed it.
inline bool weaveClass(ClassFile& classFile, const std::vector<const ProbeDescriptor*>& probes,
                       InstrumentationCounts* counts, WeavingHost* host) {
    ZVector<int> rows;
    rows.push(0);
    bool changed = false;
    for (const ProbeDescriptor* probe : probes) {
        changed =
            instrumentClassByProbeDescriptor(*probe, rows, &classFile, host, counts) || changed;
    }
    return changed;
}
