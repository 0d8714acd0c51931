#pragma once

// The one place that knows name and version. Where Java classes and documents tell it,
// tools/check-rules compares it.
#define VDK_VERSION "10.0.6"
#define VDK_BUILD_STAMP "201201261731"
#define VDK_PRODUCT "Vandrik Java Profiler"
#define VDK_FULL_NAME VDK_PRODUCT " " VDK_VERSION
// Where a user reads about the startup options; named in the usage text and in refusals.
#define VDK_OPTIONS_PAGE "docs/options.md"
