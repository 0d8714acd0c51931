// Patterns, descriptors and filter texts from users and from class files. The first line is the
// pattern, the rest the text that it is matched with.

#include "core/ground/Logger.h"
#include "core/ground/WildcardMatch.h"
#include "probes/Filter.h"
#include "probes/SignatureUtil.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const bool quiet = [] {
        Logger::setSink([](const char*) {});
        return true;
    }();
    const std::string input(reinterpret_cast<const char*>(bytes), quiet ? count : 0);
    const size_t line = input.find('\n');
    const std::string pattern = input.substr(0, line);
    const std::string text = line == std::string::npos ? std::string() : input.substr(line + 1);
    ZString parts[6];
    const ZString error = SignatureUtil::parseMethodPattern(pattern.c_str(), parts[0], parts[1],
                                                            parts[2], parts[3], parts[4], parts[5]);
    if (error.isEmpty()) {
        for (const ZString& part : parts) {
            wildcardMatch(part.c_str(), text.c_str());
        }
    }
    wildcardMatch(pattern.c_str(), text.c_str());
    SignatureUtil::convertMethodSignatureToParameters(text.c_str());
    SignatureUtil::convertClassSignatureToFullName(text.c_str());
    className2signature(text.c_str());
    const ClassNameFilter filter(input.c_str());
    filter.isFilteredClassName(text.c_str());
    return 0;
}
