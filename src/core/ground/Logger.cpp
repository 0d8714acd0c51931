#include "core/ground/Logger.h"

#include "core/ground/ConfigFile.h"
#include "core/ground/Globals.h"
#include "core/ground/LogFile.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/Version.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

bool Logger::ourExitOnException = false;

namespace {

const char LOG_DIRECTORY[] = "/.vdk/log";

std::atomic<bool> ourOpenAttempted{false};
std::atomic<FILE*> ourLogStream{nullptr};
std::atomic<void (*)(const char*)> ourSink{nullptr};

bool isQuiet() {
    return ourOptions != nullptr && ourOptions->quiet;
}

double uptimeSeconds() {
    return static_cast<double>(ourUptimeProvider.getUptimeMs()) / 1000.0;
}

// The system gives the agent no stack walker that is safe on every thread, so nothing is appended.
void appendStackTrace(ZString&) {}

} // namespace

void Logger::setSink(void (*sink)(const char* line)) {
    ourSink.store(sink);
}

ZString Logger::place(const char* file, int line) {
    ZString text(file);
    text = text.substring(text.lastIndexOf('/') + 1);
    const int dot = text.lastIndexOf('.');
    if (dot > 0) {
        text = text.substring(0, dot);
    }
    text.append(":");
    text.appendLong(line);
    return text;
}

FILE* Logger::logStream() {
    if (ourOpenAttempted.exchange(true)) {
        return ourLogStream.load();
    }
    ZString path;
    FILE* stream = LogFile::open(getUserHome() + LOG_DIRECTORY, &path);
    if (stream == nullptr) {
        // No home, or one that cannot be written to, as services and containers have it.
        const ZString directory = makePrivateDirectory();
        ZString second;
        stream = directory.isEmpty() ? nullptr : LogFile::open(directory + "/log", &second);
        path = stream == nullptr ? path : second;
    }
    if (!isQuiet()) {
        fprintf(stderr, "[%s] Loaded. Log file: %s%s\n", VDK_FULL_NAME, path.c_str(),
                stream == nullptr ? " - creation failed" : "");
        fflush(stderr);
    }
    ourLogStream.store(stream);
    return stream;
}

void Logger::writeLine(FILE* stream, double uptimeSeconds, const char* text) {
    if (stream == stdout || stream == stderr) {
        fprintf(stream, "%s - %.3f: ", VDK_VERSION, uptimeSeconds);
        printToConsole(stream, ZString(text) + "\n");
        fflush(stream);
        return;
    }
    const int bytes = fprintf(stream, "%s - %.3f: %s\n", VDK_VERSION, uptimeSeconds, text);
    fflush(stream);
    LogFile::wrote(stream, bytes);
}

bool Logger::writeToLog(const ZString& text, double uptimeSeconds) {
    FILE* const log = logStream();
    if (log != nullptr) {
        writeLine(log, uptimeSeconds, text.c_str());
    }
    return log != nullptr;
}

bool Logger::giveToSink(const ZString& text) {
    void (*const sink)(const char*) = ourSink.load();
    if (sink != nullptr) {
        sink(text.c_str());
    }
    return sink != nullptr;
}

void Logger::detail(const ZString& text) {
    if (!text.isEmpty() && !giveToSink(text)) {
        writeToLog(text, uptimeSeconds());
    }
}

void Logger::refusal(const ZString& text) {
    detail(text);
    printToConsole(stderr, text + "\n");
    fflush(stderr);
}

void Logger::message(const ZString& text, FILE* stream) {
    if (text.isEmpty() || giveToSink(text)) {
        return;
    }
    const double seconds = uptimeSeconds();
    if (!writeToLog(text, seconds) && !isQuiet()) {
        writeLine(stderr, seconds, text.c_str());
    }
    if (stream != nullptr) {
        writeLine(stream, seconds, text.c_str());
    }
}

void Logger::error(const ZString& text, const char* file, int line) {
    ZString full = ZString("error at ") + place(file, line) + ": " + text;
    appendStackTrace(full);
    message(full);
    throw VDKRuntimeException();
}

void Logger::exceptionCaught(const char* file, int line) noexcept {
    ourStatus |= INTERNAL_ERROR_BIT;
    // Out of memory may be the reason for being here: the line is made in a fixed buffer.
    char text[512];
    const int nameLength = static_cast<int>(strcspn(file, "."));
    snprintf(text, sizeof text, "exception caught at %.*s:%d", nameLength, file, line);
    void (*const sink)(const char*) = ourSink.load();
    if (sink != nullptr) {
        sink(text);
    } else {
        FILE* const log = ourLogStream.load();
        const long uptimeMs = ourUptimeProvider.getUptimeMs();
        FILE* const stream = log != nullptr ? log : isQuiet() ? nullptr : stderr;
        if (stream != nullptr) {
            const int bytes = fprintf(stream, "%s - %.3f: %s\n", VDK_VERSION,
                                      static_cast<double>(uptimeMs) / 1000.0, text);
            fflush(stream);
            LogFile::wrote(log, log == nullptr ? 0 : bytes);
        }
    }
    if (ourExitOnException) {
        FILE* const log = ourLogStream.load();
        FILE* const stream = log != nullptr ? log : stderr;
        fprintf(stream, "%s - %.3f: exiting (exitonexception mode)\n", VDK_VERSION,
                static_cast<double>(ourUptimeProvider.getUptimeMs()) / 1000.0);
        fflush(stream);
        exit(-1);
    }
}

void Logger::dumpStack(const char* text) {
    ZString full = ZString("Stack dump: ") + text;
    appendStackTrace(full);
    message(full);
}

void Logger::failTrue(const char* file, int line) {
    error("assertion failed", file, line);
}

void Logger::failNotNULL(const char* file, int line) {
    error("assertion failed: value is NULL", file, line);
}

void Logger::failEquals(long value, long expected, const char* file, int line) {
    ZString text("assertion failed: value=");
    text.appendLong(value);
    text.append(" expected=");
    text.appendLong(expected);
    error(text, file, line);
}

void Logger::assertNotEquals(long value, long unexpected, const char* file, int line) {
    if (value == unexpected) {
        ZString text("assertion failed: unexpected value ");
        text.appendLong(value);
        error(text, file, line);
    }
}

void Logger::assertEquals2(long value, long expected1, long expected2, const char* file, int line) {
    if (value != expected1 && value != expected2) {
        ZString text("assertion failed: value=");
        text.appendLong(value);
        text.append(", expected ");
        text.appendLong(expected1);
        text.append(" or ");
        text.appendLong(expected2);
        error(text, file, line);
    }
}

void Logger::printToConsole(FILE* stream, const ZString& text) {
    if (!text.contains("\xC0\x80")) {
        printToConsoleImpl(stream, text);
        return;
    }
    ZString shown;
    for (int i = 0; i < text.getLength(); i++) {
        if (text.charAt(i) == '\xC0' && i + 1 < text.getLength() && text.charAt(i + 1) == '\x80') {
            shown.appendChar('.');
            i++;
        } else {
            shown.appendChar(text.charAt(i));
        }
    }
    printToConsoleImpl(stream, shown);
}

void Logger::printToConsoleImpl(FILE* stream, const ZString& text) {
    fputs(text.c_str(), stream);
}
