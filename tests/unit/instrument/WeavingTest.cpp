#include "support/ClassBuilder.h"
#include "support/ClassBundle.h"
#include "support/ReferenceClass.h"
#include "support/WeaveClasses.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using B = ClassBuilder;
using Weaving = QuietTest;

const char OBJECT[] = "Ljava/lang/Object;";
const char STRING[] = "Ljava/lang/String;";

// Every kind that the callback may have; `more` in front, `last` is the type of @This.
ProbeCallback everything(const std::string& more, std::vector<CallbackParameter> first,
                         const std::string& self, const std::string& result) {
    first.insert(first.end(),
                 {kind(CALLBACK_THIS), kind(CALLBACK_PARAMS), parameter(1), parameter(2),
                  parameter(9), kind(CALLBACK_METHOD_NAME), kind(CALLBACK_METHOD_SIGNATURE),
                  kind(CALLBACK_METHOD_PARAMETER_TYPES), kind(CALLBACK_CLASS_REF)});
    return {"(" + more + self + "[" + OBJECT + OBJECT + "JI" + STRING + STRING + STRING +
                "Ljava/lang/Class;)" + result,
            first};
}

// The result of onEnter and a value as Object.
ProbeCallback atExit(CallbackParameterKind value, const std::string& type, const std::string& self,
                     const std::string& result) {
    return everything("J" + type, {kind(CALLBACK_ON_ENTER_RESULT), kind(value)}, self, result);
}

std::vector<std::unique_ptr<ProbeDescriptor>> probesOfEveryKind() {
    const std::string throwable = "Ljava/lang/Throwable;";
    std::vector<std::unique_ptr<ProbeDescriptor>> probes;
    for (const bool isTested : {false, true}) {
        const std::string self = isTested ? "Ljava/lang/Runnable;" : OBJECT;
        ProbeOutline outline;
        outline.instanceOf = isTested ? "java/lang/Runnable" : "";
        outline.enter = everything("", {}, self, "J");
        outline.exit = atExit(CALLBACK_RETURN_VALUE, OBJECT, self, "V");
        outline.thrown = atExit(CALLBACK_THROWN_EXCEPTION, throwable, self, "V");
        probes.push_back(makeProbe(outline));
        for (const char* const type : {"I", "J", OBJECT}) {
            outline.replaced = type;
            outline.swallows = true;
            outline.exit = atExit(CALLBACK_RETURN_VALUE, OBJECT, self, type);
            outline.thrown = atExit(CALLBACK_THROWN_EXCEPTION, throwable, self, type);
            probes.push_back(makeProbe(outline));
        }
    }
    return probes;
}

const char LINKER_SOURCE[] = R"(
import java.io.*;
import java.net.*;
import java.nio.file.*;
import java.util.*;
public class Linker {
    public static void main(String[] args) throws Exception {
        ClassLoader jars = args[0].isEmpty() ? null
            : new URLClassLoader(new URL[] {new File(args[0]).toURI().toURL()}, null);
        try (PrintWriter out = new PrintWriter(args[2])) {
            for (String name : Files.readAllLines(Path.of(args[1]))) {
                boolean inJar = name.startsWith("+");
                String end = "ok";
                try {
                    Class.forName(inJar ? name.substring(1) : name, false, inJar ? jars : null)
                        .getDeclaredConstructors();
                } catch (NoClassDefFoundError e) {
                    end = "missing";
                } catch (Throwable e) {
                    end = e.toString();
                }
                out.println(name + " " + end);
            }
        }
    }
}
)";

std::string dottedName(const std::string& path) {
    std::string name = path.substr(0, path.size() - 6);
    for (char& c : name) {
        c = c == '/' ? '.' : c;
    }
    return name;
}

// Where a class of a bundle belongs: its path, and whether it is one of java.base.
struct Place {
    std::string path;
    bool isBase;
};

Place placeOf(const std::string& name) {
    const std::string module = "/modules/java.base/";
    return name.compare(0, module.size(), module) == 0
               ? Place{name.substr(module.size()), true}
               : Place{name.substr(name.find('!') + 1), false};
}

void writeClass(const std::string& folder, const std::string& path, const std::string& bytes) {
    std::string output;
    const size_t slash = path.rfind('/');
    static std::set<std::string> made;
    const std::string parent = folder + "/" + (slash == std::string::npos ? "" : path.substr(0, slash));
    if (made.insert(parent).second) {
        ASSERT_EQ(runCommand("mkdir -p '" + parent + "'", &output), 0) << output;
    }
    writeBinaryFile(folder + "/" + path, bytes);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end - at));
        at = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

// Names of the classes that ran in a JVM with this log.
std::set<std::string> initialized(const std::string& log) {
    std::set<std::string> names;
    for (const std::string& line : linesOf(log)) {
        const size_t at = line.find("Initializing '");
        if (at != std::string::npos) {
            const size_t start = at + 14;
            names.insert(line.substr(start, line.find('\'', start) - start) + ".class");
        }
    }
    return names;
}

} // namespace

// Every method of the JDK's base module and of jars with probes of every kind, one upon the other,
// in a JVM that verifies all classes. What runs while the JVM starts stays as it is.
TEST_F(Weaving, everyMethodWovenWithEveryKindIsVerified) {
    const std::vector<std::unique_ptr<ProbeDescriptor>> probes = probesOfEveryKind();
    std::vector<const ProbeDescriptor*> list;
    for (const auto& probe : probes) {
        list.push_back(probe.get());
    }
    for (const std::string& jdk : findJdks()) {
        std::vector<std::string> sources = {"jrt:java.base"};
        for (const std::string& jar : findSystemJars()) {
            for (const char* const wanted : {"/asm-all", "/h2-"}) {
                if (jar.find(wanted) != std::string::npos) {
                    sources.push_back(jar);
                }
            }
        }
        const ClassBundle bundle(extractClasses(jdk, sources));
        const std::string folder = makeTemporaryDirectory();
        const std::string linker = compileJava(jdk, "Linker", LINKER_SOURCE);
        std::string names;
        std::string output;
        std::set<std::string> taken;
        runCommand("mkdir -p " + folder + "/base " + folder + "/jars", &output);
        for (const NamedClass& one : bundle.classes()) {
            const Place place = placeOf(one.name);
            if (place.path.find("module-info") == std::string::npos &&
                place.path.find("META-INF/") == std::string::npos &&
                taken.insert(place.path).second) {
                names += (place.isBase ? "" : "+") + dottedName(place.path) + "\n";
                // Reading a patched module and a folder of classes takes code that has to run.
                if (place.path == "java/util/Random.class" || names.size() % 256 == 0) {
                    writeClass(folder + (place.isBase ? "/base" : "/jars"), place.path,
                               std::string(reinterpret_cast<const char*>(one.bytes),
                                           static_cast<size_t>(one.length)));
                }
            }
        }
        writeBinaryFile(folder + "/names", names);
        const auto run = [&](const std::string& options, const std::string& results) {
            std::string printed;
            EXPECT_EQ(runCommand(jdk + "/bin/java -Xmx1g -XX:+UnlockDiagnosticVMOptions "
                                       "-XX:-PrintWarnings -XX:+BytecodeVerificationLocal "
                                       "-XX:+BytecodeVerificationRemote --patch-module java.base=" +
                                     folder + "/base " + options + " -cp " + linker + " Linker " +
                                     folder + "/jars/ " + folder + "/names " + results,
                                 &printed),
                      0)
                << printed.substr(0, 3000);
            return printed;
        };
        const std::set<std::string> running =
            initialized(run("-Xlog:class+init=info", folder + "/plain"));
        ASSERT_GT(running.size(), 300u);
        InstrumentationCounts counts = {};
        RecordingHost host;
        int classes = 0;
        for (const NamedClass& one : bundle.classes()) {
            const Place place = placeOf(one.name);
            if (taken.erase(place.path) == 0 || (place.isBase && running.count(place.path) > 0)) {
                continue;
            }
            DataInput input(one.bytes, one.length);
            ClassFile classFile(input);
            const bool isWoven = weaveClass(classFile, list, &counts, &host);
            classes += isWoven ? 1 : 0;
            if (isWoven || !place.isBase) {
                writeClass(folder + (place.isBase ? "/base" : "/jars"), place.path,
                           isWoven && classFile.getConstantPool().getSize() < 65000
                               ? writtenClass(classFile)
                               : std::string(reinterpret_cast<const char*>(one.bytes),
                                             static_cast<size_t>(one.length)));
            }
        }
        run("", folder + "/woven");
        int faults = 0;
        int linked = 0;
        for (const std::string& line : linesOf(readBinaryFile(folder + "/woven"))) {
            const bool isFault = line.find("Error", line.find(' ')) != std::string::npos;
            linked += line.size() > 3 && line.compare(line.size() - 3, 3, " ok") == 0 ? 1 : 0;
            if (isFault && ++faults < 10) {
                ADD_FAILURE() << line;
            }
        }
        EXPECT_EQ(faults, 0);
        EXPECT_GT(linked, classes / 2);
        EXPECT_GT(counts.methods[METHOD_OUTCOME_INSTRUMENTED], 100000);
        printf("%s: %d classes woven, %d linked; %s\n", jdk.c_str(), classes, linked,
               counts.toString().c_str());
    }
}
