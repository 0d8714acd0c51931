#include "client/watch/WatchPattern.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cctype>

namespace vdk {

namespace {

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

[[noreturn]] void fail(const std::string& text) {
    throw ClientError(ExitCode::Usage, "watch.pattern", "'" + printable(text) + "' names no method",
                      "CLASS:METHOD, such as com.shop.Cart:add or 'com.shop.*:find*(*)'");
}

// Where the name of the class ends, and what stands between it and the method.
struct Separator {
    size_t at, length;
};

bool isClassName(const std::string& word) {
    return !word.empty() && isupper(static_cast<unsigned char>(word[0]));
}

Separator findSeparator(const std::string& names) {
    for (const char* mark : {"::", ":", "#"}) {
        const size_t at = names.find(mark);
        if (at != std::string::npos) {
            return {at, std::string(mark).size()};
        }
    }
    const size_t dot = names.rfind('.');
    if (dot == std::string::npos || isClassName(names.substr(dot + 1))) {
        return {names.size(), 0}; // a class alone
    }
    return {dot, 1};
}

} // namespace

std::string watchPattern(const std::string& text) {
    const size_t open = text.find('(');
    const std::string parameters = open == std::string::npos ? "(*)" : trimmed(text.substr(open));
    const std::string names = trimmed(text.substr(0, open));
    const Separator separator = findSeparator(names);
    std::string className = trimmed(names.substr(0, separator.at));
    std::string method = trimmed(names.substr(separator.at + separator.length));
    std::replace(className.begin(), className.end(), '/', '.');
    const bool isClass = isClassName(className.substr(className.rfind('.') + 1));
    if (separator.length == 0 && open == std::string::npos && isClass) {
        method = "*";
    }
    // "com.shop.*": all of a package; "com.shop.Cart.*" all of a class.
    if (names[separator.at] == '.' && method == "*" && !isClass && !className.empty()) {
        className += ".*";
    }
    if (className.empty() || method.empty()) {
        fail(text);
    }
    return className + ":" + method + parameters;
}

} // namespace vdk
