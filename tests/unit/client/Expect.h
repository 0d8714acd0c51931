// Checks on the errors that the client throws.
#pragma once

#include "client/console/Errors.h"

#include <gtest/gtest.h>
#include <string>

// Runs the body and gives the word of the ClientError that it throws, "" if it throws none.
template <typename Body>
std::string wordOf(Body body, std::string* message = nullptr) {
    try {
        body();
    } catch (const vdk::ClientError& e) {
        if (message) {
            *message = e.what();
        }
        return e.word;
    }
    return "";
}
