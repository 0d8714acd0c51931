// The picture as a request of OTLP's signal for profiles, in gzip: the messages of
// opentelemetry-proto 1.10.0, package v1development. The signal is in development; its messages are
// not those of other versions.
#pragma once

#include "client/picture/Picture.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vdk {

struct OtlpResource {
    std::vector<std::pair<std::string, std::string>> texts; // attributes
    int64_t pid = 0;
};

// Each value that pprof would have is a profile of its own; threads are attributes of the samples.
std::string otlpProfiles(const Picture& picture, const OtlpResource& resource, int64_t fromMs,
                         int64_t untilMs);

} // namespace vdk
