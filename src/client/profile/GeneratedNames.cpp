#include "client/profile/GeneratedNames.h"

#include <cctype>
#include <unordered_map>

namespace vdk {

namespace {

// Position behind the digits (hexadecimal ones on demand) from `at` on.
size_t skipDigits(const std::string& text, size_t at, bool hexadecimal) {
    while (at < text.size() && (hexadecimal ? std::isxdigit(static_cast<unsigned char>(text[at]))
                                            : std::isdigit(static_cast<unsigned char>(text[at])))) {
        at++;
    }
    return at;
}

// Takes out an address such as "/0x00007f12ab" or "+0x1f"; in live names it stands behind a dot.
void removeAddresses(std::string& name) {
    for (const char* mark : {"/0x", "+0x", ".0x"}) {
        size_t at;
        while ((at = name.find(mark)) != std::string::npos) {
            name.erase(at, skipDigits(name, at + 3, true) - at);
        }
    }
}

} // namespace

std::string cleanFrameName(const std::string& name) {
    std::string result = name;
    removeAddresses(result);
    for (const char* mark : {"$$Lambda$", "LambdaForm$", "GeneratedMethodAccessor",
                             "GeneratedConstructorAccessor", "$Proxy"}) {
        std::string prefix = mark;
        size_t at = 0;
        while ((at = result.find(prefix, at)) != std::string::npos) {
            at += prefix.size();
            size_t end = skipDigits(result, at, false);
            // A "$" that only led to the number goes with it.
            size_t from = end > at && prefix.back() == '$' ? at - 1 : at;
            result.erase(from, end - from);
        }
    }
    return result;
}

void mergeGeneratedNames(Profile& profile) {
    std::unordered_map<std::string, int> firstOfName;
    std::vector<int> merged(profile.methods.size());
    for (size_t i = 0; i < profile.methods.size(); i++) {
        ProfileMethod& method = profile.methods[i];
        std::string clean = cleanFrameName(method.className);
        bool generated = clean != method.className;
        method.className = clean;
        merged[i] =
            generated ? firstOfName.try_emplace(method.fullName(), int(i)).first->second : int(i);
    }
    for (Profile::Frame& frame : profile.frames) {
        if (frame.method >= 0 && size_t(frame.method) < merged.size()) {
            frame.method = merged[size_t(frame.method)];
        }
    }
}

} // namespace vdk
