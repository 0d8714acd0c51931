#pragma once

#include "core/ground/ZString.h"

// JvmArguments: every option that this JVM was started with, wherever it stands: on the command
// line before the application's name, in JAVA_TOOL_OPTIONS, JDK_JAVA_OPTIONS and _JAVA_OPTIONS, in
// argument files (@file), in -XX:Flags= and in -XX:VMOptionsFile=. A file that can't be read counts
// as empty.
class JvmArguments {
public:
    // Collects for a command line; the variables come from the environment.
    explicit JvmArguments(const ZVectorSafe<ZString>& commandLine);

    bool containsPrefix(const char* prefix) const;

    // The JVM writes an archive of classes: a training run, an assembly, or a dump at exit. Classes
    // that an agent brings or changes make such a run fail or crash, so the agent stays inert.
    bool isArchiveDump() const;

    // The JVM may use an archive of application classes, which an appended boot path invalidates:
    // silently, or by ending the JVM where the archive was demanded.
    bool mayUseApplicationArchive() const;

    const ZVectorSafe<ZString>& getWords() const { return words; }

private:
    void addVariable(const char* name);
    // Options of a text: words separated by white space, with quotes, escapes and comments.
    void addText(const ZString& text, bool bareFlags, int depth);
    void addWord(const ZString& word, bool bareFlags, int depth);

    ZVectorSafe<ZString> words;
};
