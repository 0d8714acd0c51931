// What was recorded as a file, in the form that the file's name asks for.
#pragma once

#include "client/commands/Sources.h"
#include "client/profile/Selection.h"

#include <optional>
#include <string>

namespace vdk {

enum class Form { Html, Snapshot, Collapsed, Speedscope, Pprof, Json };

// By the end of the name: ".html", ".snapshot", ".collapsed" or ".folded", ".speedscope.json",
// ".pb.gz" or ".pprof", ".json".
std::optional<Form> formOf(const std::string& path);
// "html", ...; as --format takes them.
const char* formName(Form form);
std::optional<Form> formOfName(const std::string& name);

struct FormChoices {
    Selection selection;
    bool filters = false;
    bool signatures = false;
    bool rawNames = false;
    bool byThread = false;
    int64_t unitNs = 1000;
    std::string notes; // of pages: how it was recorded
};

struct WrittenForm {
    int64_t bytes = 0;
    std::vector<std::string> unmatched; // patterns of the selection
};

// Writes the file. "-" is standard output.
WrittenForm writeForm(Console& console, DataSource& source, Form form, const std::string& path,
                      const FormChoices& choices);

// The document of `vdk report --json`, on this console.
void writeReportDocument(Console& console, DataSource& source, const Arguments& arguments);

} // namespace vdk
