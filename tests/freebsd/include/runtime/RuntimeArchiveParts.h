// Stands in for what the build writes.
#define VDK_RUNTIME_ARCHIVE_SIZE 2
#define VDK_RUNTIME_ARCHIVE_PARTS(PART) PART(0, 1) PART(1, 1)
