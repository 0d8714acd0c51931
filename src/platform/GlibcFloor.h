// The oldest C library that the agent loads on, and that `vdk` runs on: GlibcFloor_linux.cpp keeps
// both, tests/exports/check reads them here.
#pragma once

struct GlibcVersion {
    int major;
    int minor;
};

const GlibcVersion AGENT_GLIBC_FLOOR = {2, 17};
const GlibcVersion PROGRAM_GLIBC_FLOOR = {2, 28};
