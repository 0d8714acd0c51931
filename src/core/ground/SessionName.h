#pragma once

#include "core/ground/ZString.h"

// Pushes the arguments of a process on out, the executable first. out must be empty; it stays
// empty when the system does not tell.
void getCommandLineParameters(ZVectorSafe<ZString>* out, int pid);

// True for an option of the launcher whose value is the argument behind it, such as "-cp".
bool isOptionWithValue(const ZString& argument);

// Index of the argument that names the application: main class or, behind "-jar", a JAR file. What
// stands before it are options of the JVM, what follows belongs to the application. The size of the
// list when there is none.
int findApplicationArgument(const ZVectorSafe<ZString>& commandLine);

// A short word for the application that a java command line runs: the name of a known server, the
// main class or the JAR file without its ending, or the launcher's own name. "unknown" for an empty
// list.
ZString getSessionNameByCommandLine(const ZVectorSafe<ZString>& commandLine);
