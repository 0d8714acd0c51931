// What was recorded as a file, in the form that the file's name asks for.
#pragma once

#include "client/commands/Sources.h"
#include "client/picture/PictureSvg.h"
#include "client/profile/Selection.h"

#include <optional>
#include <string>

namespace vdk {

enum class Form {
    Html,
    Svg,
    Snapshot,
    Collapsed,
    Speedscope,
    Pprof,
    Firefox,
    Csv,
    Sqlite,
    OpenMetrics,
    Json
};

// What is read of a JVM for a form.
enum class FormNeeds { CpuTimes, Stacks, Everything };

struct FormInfo {
    Form form;
    const char* name; // as --format takes it
    std::vector<const char*> endings;
    FormNeeds needs;
    bool isExported;  // by `vdk export`; `vdk record` writes all
    const char* next; // what to do with such a file, % being its name
};
// The first ending that fits a name counts.
const std::vector<FormInfo>& allForms();
const FormInfo& infoOf(Form form);

// By the end of the name.
std::optional<Form> formOf(const std::string& path);
std::optional<Form> formOfName(const std::string& name);
// What is fetched of a JVM.
int tablesOf(Form form);
// ".html, .snapshot or ..."
enum class Endings { All, Exported, OfMoreThanCpuTimes };
std::string listOfEndings(Endings which);
// The ending of a name that tells its form, where it has more than one dot; else empty.
std::string longEnding(const std::string& path);

struct FormChoices {
    Selection selection;
    bool filters = false;
    bool signatures = false;
    bool rawNames = false;
    bool byThread = false;
    int64_t unitNs = 1000;
    SvgLimits svg;
    std::string table = "methods"; // CSV: which one
    std::string notes;             // of pages: how it was recorded
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
