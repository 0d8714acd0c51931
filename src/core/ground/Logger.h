#pragma once

#include "core/ground/Exceptions.h"
#include "core/ground/Here.h"
#include "core/ground/ZString.h"

#include <cstdio>

// Logger: how the agent tells anybody anything: one log file a process,
// <user home>/.vdk/log/<pid>.log, and the console for what a user must see. Lines from two threads
// may interleave; a line that can't be written is ignored. Assertions are live in every build and
// throw VDKRuntimeException, which unwinds to the nearest entry from the JVM.
class Logger {
public:
    // Ends the process at the first caught internal error (option exitonexception).
    static bool ourExitOnException;

    // Writes one line to the log and, if stream is not null, to that stream too. Without a log the
    // line goes to standard error, unless the option quiet is set. An empty text writes nothing.
    static void message(const ZString& text, FILE* stream = nullptr);

    // Tells why something of the agent does not start: one line in the log, and one on standard
    // error whatever the option quiet says.
    static void refusal(const ZString& text);

    // A line for the log alone: where there is no log, it is dropped.
    static void detail(const ZString& text);

    // Logs "error at file:line: text" and throws VDKRuntimeException.
    [[noreturn]] static void error(const ZString& text, const char* file, int line);

    // To be called in every catch clause of an entry point: one log line, and the status tells of
    // it from then on. Allocates nothing and throws nothing.
    static void exceptionCaught(const char* file, int line) noexcept;

    static void dumpStack(const char* text);

    static void assertTrue(bool condition, const char* file, int line) {
        if (__builtin_expect(!condition, 0)) {
            failTrue(file, line);
        }
    }
    static void assertNotNULL(const void* value, const char* file, int line) {
        if (__builtin_expect(value == nullptr, 0)) {
            failNotNULL(file, line);
        }
    }
    static void assertEquals(long value, long expected, const char* file, int line) {
        if (__builtin_expect(value != expected, 0)) {
            failEquals(value, expected, file, line);
        }
    }
    static void assertNotEquals(long value, long unexpected, const char* file, int line);
    static void assertEquals2(long value, long expected1, long expected2, const char* file,
                              int line);

    // Writes text to a console stream with every encoded zero character (the bytes C0 80 of the
    // JVM's modified UTF-8) shown as a dot; no prefix, no newline of its own.
    static void printToConsole(FILE* stream, const ZString& text);
    static void printToConsoleImpl(FILE* stream, const ZString& text);

    // "Sampling:80": the source name and the line of a place, which may be given by its path.
    static ZString place(const char* file, int line);

    // For programs that are not an agent: every line goes to this function, and no file is opened.
    static void setSink(void (*sink)(const char* line));

private:
    [[noreturn]] static void failTrue(const char* file, int line);
    [[noreturn]] static void failNotNULL(const char* file, int line);
    [[noreturn]] static void failEquals(long value, long expected, const char* file, int line);
    static FILE* logStream();
    static bool writeToLog(const ZString& text, double uptimeSeconds);
    static bool giveToSink(const ZString& text);
    static void writeLine(FILE* stream, double uptimeSeconds, const char* text);
};
