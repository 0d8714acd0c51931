#pragma once

#include "core/ground/Exceptions.h"
#include "core/ground/Globals.h"
#include "core/ground/Logger.h"

#include <new>

// Runs the body of an entry from the JVM. No exception leaves it: each is reported through
// Logger::exceptionCaught with the place of the entry. True if the body ended normally; on false
// the entry resets its outputs and, with a Java caller, throws the Java exception.
//
// The catch side allocates nothing.
template <typename Body>
bool runGuarded(const char* file, int line, Body&& body) noexcept {
    try {
        body();
        return true;
    } catch (const VDKRuntimeException&) {
        Logger::exceptionCaught(file, line);
    } catch (const LowDiskSpaceException&) {
        Logger::exceptionCaught(file, line);
    } catch (const std::bad_alloc&) {
        ourMemoryRanOut = true;
        Logger::exceptionCaught(file, line);
    } catch (...) {
        Logger::exceptionCaught(file, line);
    }
    return false;
}
