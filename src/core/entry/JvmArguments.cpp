#include "core/entry/JvmArguments.h"

#include "core/ground/ConfigFile.h"
#include "core/ground/SessionName.h"

#include <cstdlib>
#include <cstring>

namespace {

const char* const OPTION_VARIABLES[] = {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"};
const char FLAGS_FILE[] = "-XX:Flags=";
const char OPTIONS_FILE[] = "-XX:VMOptionsFile=";
const char LAUNCHER_PREFIX[] = "-J";
// Files name files only by mistake; this ends a circle.
const int MAX_FILE_DEPTH = 8;

const char* const DUMP_OPTIONS[] = {"-XX:AOTCacheOutput=", "-XX:AOTMode=record",
                                    "-XX:AOTMode=create",
                                    "-XX:ArchiveClassesAtExit=", "-Xshare:dump"};
const char* const ARCHIVE_OPTIONS[] = {"-XX:SharedArchiveFile=", "-XX:AOTCache=", "-XX:AOTMode=on",
                                       "-XX:AOTMode=auto", "-XX:+AutoCreateSharedArchive"};

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// Reads one word at position and moves behind it. A comment counts as blank.
ZString nextWord(const char*& position) {
    while (isBlank(*position) || *position == '#') {
        if (*position == '#') {
            position += strcspn(position, "\n\r");
        } else {
            position++;
        }
    }
    ZString word;
    char quote = 0;
    for (; *position != 0 && (quote != 0 || !isBlank(*position)); position++) {
        const char c = *position;
        if (quote == 0 && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = 0;
        } else {
            word.appendChar(c);
        }
    }
    return word;
}

} // namespace

JvmArguments::JvmArguments(const ZVectorSafe<ZString>& commandLine) {
    const int end = findApplicationArgument(commandLine);
    for (int i = 1; i < end; i++) {
        addWord(commandLine[i], false, 0);
        if (isOptionWithValue(commandLine[i])) {
            i++;
        }
    }
    for (const char* name : OPTION_VARIABLES) {
        addVariable(name);
    }
}

void JvmArguments::addVariable(const char* name) {
    const char* value = getenv(name);
    if (value != nullptr) {
        addText(value, false, 0);
    }
}

void JvmArguments::addText(const ZString& text, bool bareFlags, int depth) {
    const char* position = text.c_str();
    for (ZString word = nextWord(position); !word.isEmpty(); word = nextWord(position)) {
        addWord(word, bareFlags, depth);
    }
}

void JvmArguments::addWord(const ZString& word, bool bareFlags, int depth) {
    ZString option(word);
    if (bareFlags && !word.startsWith("-")) {
        option = ZString("-XX:") + word;
    } else if (word.startsWith(LAUNCHER_PREFIX)) {
        // The JDK's tools hand such arguments on to their JVM.
        option = word.substring(static_cast<int>(strlen(LAUNCHER_PREFIX)));
    }
    words.push(option);
    const bool isFlagsFile = option.startsWith(FLAGS_FILE);
    ZString file;
    if (isFlagsFile) {
        file = option.substring(static_cast<int>(strlen(FLAGS_FILE)));
    } else if (option.startsWith(OPTIONS_FILE)) {
        file = option.substring(static_cast<int>(strlen(OPTIONS_FILE)));
    } else if (option.startsWith("@")) {
        file = option.substring(1);
    }
    ZString text;
    if (!file.isEmpty() && depth < MAX_FILE_DEPTH && readFile(file, &text)) {
        addText(text, isFlagsFile, depth + 1);
    }
}

bool JvmArguments::containsPrefix(const char* prefix) const {
    for (int i = 0; i < words.getSize(); i++) {
        if (words[i].startsWith(prefix)) {
            return true;
        }
    }
    return false;
}

bool JvmArguments::isArchiveDump() const {
    for (const char* option : DUMP_OPTIONS) {
        if (containsPrefix(option)) {
            return true;
        }
    }
    return false;
}

bool JvmArguments::mayUseApplicationArchive() const {
    for (const char* option : ARCHIVE_OPTIONS) {
        if (containsPrefix(option)) {
            return true;
        }
    }
    return false;
}
