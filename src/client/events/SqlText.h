// Texts of SQL statements, as lists name them.
#pragma once

#include <string>

namespace vdk {

// The statement with "?" for every literal, one blank for white space and comments, and "(?, ...)"
// for a list of them, so that executions of one statement of a program have one text.
std::string statementShape(const std::string& sql);

} // namespace vdk
