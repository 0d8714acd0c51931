#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "probes/Probes.h"
#include "support/ClassBundle.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::string_literals;
using testing::ElementsAre;

namespace {

struct Row {
    const char* className;
    std::vector<const char*> messages; // behind the prefix and the class
};

const Row ROWS[] = {
    {"Hidden", {": class must be public"}},
    {"Enters", {": more than one method onEnter()"}},
    {"Returns", {": more than one method onReturn()"}},
    {"Throws", {": more than one method onUncaughtException()"}},
    {"ThrowsExt", {": more than one method onUncaughtExceptionExt()"}},
    {"ThrowsInt", {": onUncaughtException() must be void"}},
    {"BothThrows",
     {": onUncaughtException() and onUncaughtExceptionExt() callbacks cannot be used together"}},
    {"TwoTypes", {": onUncaughtExceptionExt() and onReturn() callback return types are different"}},
    {"Nothing",
     {": no callbacks found (onEnter(), onReturn(), onUncaughtException() or "
      "onUncaughtExceptionExt())"}},
    {"AllPrivate",
     {": onEnter callback must be public static", ": onReturn callback must be public static",
      ": onUncaughtException callback must be public static"}},
    {"Bare", {", method onEnter, parameter #2: parameter must be annotated"}},
    {"Double", {", method onEnter, parameter #1: more than 1 callback annotation"}},
    {"Texts",
     {", method onEnter, parameter #1: parameters annotated with @MethodName and @MethodSignature "
      "must be of type java.lang.String",
      ", method onEnter, parameter #2: parameters annotated with @MethodName and @MethodSignature "
      "must be of type java.lang.String",
      ", method onEnter, parameter #3: parameters annotated with @MethodName and @MethodSignature "
      "must be of type java.lang.String"}},
    {"Refs",
     {", method onEnter, parameter #1: parameter annotated with @ClassRef must be of type "
      "java.lang.Class"}},
    {"Thrown",
     {", method onReturn, parameter #1: @ThrownException is only allowed in onUncaughtException() "
      "callback",
      ", method onUncaughtException, parameter #1: parameter annotated with @ThrownException must "
      "be java.lang.Throwable",
      ", method onUncaughtException, parameter #3: parameter with @ThrownException annotation "
      "already exist"}},
    {"Many",
     {", method onEnter, parameter #1: @Params must be Object[]",
      ", method onEnter, parameter #3: parameter with @Params annotation already exist"}},
    {"Mine",
     {", method onEnter, parameter #1: @This must be a reference type",
      ", method onEnter, parameter #3: parameter with @This annotation already exist",
      ", method onReturn, parameter #1: parameters with @This annotation must have the same types "
      "in all callbacks"}},
    {"Lists",
     {", method onEnter, parameter #1: in probes annotated with @InstanceOf, parameters annotated "
      "with @This must be of type java.lang.Object"}},
    {"Results",
     {", method onEnter, parameter #1: @OnEnterResult is not allowed in onEnter()",
      ", method onEnter, parameter #2: @ReturnValue is only allowed in onReturn()",
      ", method onReturn, parameter #1: type of parameter annotated with @OnEnterResult and "
      "onEnter() return type must be the same",
      ", method onReturn, parameter #3: parameter with @OnEnterResult annotation already exist"}},
    {"NoEnter",
     {", method onReturn, parameter #1: @OnEnterResult cannot be used unless you define "
      "onEnter()"}},
    {"Zero",
     {", method onEnter, parameter #1: invalid @Param annotation: index must be 1 or greater",
      ", method onEnter, parameter #2: invalid @Param annotation: index must be 1 or greater"}},
    {"Patterns",
     {": invalid pattern syntax, must be <class>:<method>(<params>)",
      ": class name pattern is invalid: a..b"}},
    {"Plain", {}},
    {"Whole", {}},
    {"Entries", {}},
    {"Objects", {}},
};

const char UNUSED_RESULT[] =
    "Warning: probe class Faults$Unused: onEnter() callback returns value which is not used; "
    "either use it via @OnEnterResult or make onEnter() void";

// The classes of Faults.java as the build compiled them.
const std::string FAULTS = VDK_PROBE_CLASSES;

// The same from the compilers of all other JDKs.
std::vector<std::string> compileFaultsAgain() {
    std::vector<std::string> folders;
    for (const std::string& jdk : findJdks()) {
        if (jdk != std::filesystem::canonical(VDK_BUILD_JDK)) {
            folders.push_back(compileJava(jdk, "Faults", readBinaryFile(VDK_PROBE_SOURCE),
                                          "-cp " VDK_RUNTIME_ARCHIVE));
        }
    }
    return folders;
}

std::string classFile(const std::string& name, const std::string& folder = FAULTS) {
    return readBinaryFile(folder + "/Faults$" + name + ".class");
}

void create(const std::string& bytes, ProbeCreationResult* result, ZString* className = nullptr) {
    const auto length = static_cast<int>(bytes.size());
    ZVector<unsigned char> input(length + 1);
    memcpy(input.extend(length), bytes.data(), bytes.size());
    Probes::createProbeDescriptor(&input, PROBE_ADDED, result, className);
}

std::vector<std::string> texts(const ZVectorSafe<ZString>& list) {
    std::vector<std::string> all;
    for (int i = 0; i < list.getSize(); i++) {
        all.emplace_back(list[i].c_str());
    }
    return all;
}

std::vector<std::pair<int, int>> kinds(const ZVector<CallbackParameter>& list) {
    std::vector<std::pair<int, int>> all;
    for (int i = 0; i < list.getSize(); i++) {
        all.emplace_back(list[i].kind, list[i].index);
    }
    return all;
}

// The list of probes and the class path are the process's.
class ProbeRegistration : public testing::Test {
protected:
    ProbeRegistration() {
        // A malformed class leaves a line in the log.
        Logger::setSink([](const char*) {});
    }
    ~ProbeRegistration() override {
        Logger::setSink(nullptr);
        ourOptions->probeWarningsAsErrors = false;
        Probes::ourProbeClassPathElements.clear();
        for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
            delete Probes::ourProbeDescriptors[i];
        }
        Probes::ourProbeDescriptors.clear();
    }

    static void search(const std::string& element, const std::vector<const char*>& names,
                       ProbeCreationResult* result) {
        Probes::ourProbeClassPathElements.clear();
        Probes::ourProbeClassPathElements.push("/no/such/folder");
        Probes::ourProbeClassPathElements.push(element.c_str());
        ZVectorSafe<ZString> list;
        for (const char* name : names) {
            list.push(name);
        }
        Probes::createProbeDescriptors(list, PROBE_ADDED, result);
    }
};

void checkRules(const std::string& folder) {
    for (const Row& row : ROWS) {
        ProbeCreationResult result;
        create(classFile(row.className, folder), &result);
        std::vector<std::string> expected;
        for (const char* const message : row.messages) {
            expected.push_back(std::string("Error: probe class Faults$") + row.className + message);
        }
        EXPECT_EQ(expected, texts(result.messages));
        EXPECT_EQ(expected.empty(), result.isOK()) << row.className;
        EXPECT_EQ(std::string("Faults$") + row.className, result.getScannedClasses().c_str());
    }
}

void checkDescriptors(const std::string& folder) {
    ProbeCreationResult result;
    ZString name;
    create(classFile("Whole", folder), &result, &name);
    create(classFile("Plain", folder), &result);
    create(classFile("Entries", folder), &result);
    create(classFile("Objects", folder), &result);
    ASSERT_EQ(3, result.descriptors.getSize());
    const ProbeDescriptor& whole = *result.descriptors[0];
    EXPECT_STREQ("Faults$Whole", name.c_str());
    EXPECT_STREQ("Faults$Whole", whole.probeClass.c_str());
    EXPECT_EQ(PROBE_ADDED, whole.status);
    EXPECT_THAT(texts(whole.classPatterns), ElementsAre("a.b", "*"));
    EXPECT_THAT(texts(whole.methodPatterns), ElementsAre("c", "<init>"));
    EXPECT_THAT(texts(whole.parameterPatterns), ElementsAre("(int)", "(*)"));
    EXPECT_THAT(texts(whole.returnTypePatterns), ElementsAre("*", "void"));
    EXPECT_THAT(texts(whole.classAnnotationPatterns), ElementsAre("", "Lx/Class;"));
    EXPECT_THAT(texts(whole.methodAnnotationPatterns), ElementsAre("", "Ly/Method;"));
    EXPECT_THAT(texts(whole.exceptions),
                ElementsAre("java/io/IOException", "java/sql/SQLException"));
    EXPECT_THAT(kinds(*whole.onEnterParameters),
                ElementsAre(std::pair(0, 2), std::pair(1, -1), std::pair(2, -1), std::pair(6, -1),
                            std::pair(7, -1), std::pair(8, -1), std::pair(9, -1)));
    EXPECT_THAT(kinds(*whole.onReturnParameters),
                ElementsAre(std::pair(5, -1), std::pair(3, -1), std::pair(2, -1)));
    EXPECT_THAT(kinds(*whole.onExceptionParameters), ElementsAre(std::pair(4, -1)));
    EXPECT_STREQ("(JILjava/lang/String;)I", whole.onReturnDescriptor.c_str());
    EXPECT_STREQ("(Ljava/lang/Throwable;)I", whole.onExceptionDescriptor.c_str());
    EXPECT_STREQ("I", whole.getCallbackReturnType().c_str());
    EXPECT_STREQ("java/lang/String", whole.instanceOfClass.c_str()) << "the type of @This";
    EXPECT_TRUE(whole.usesOnEnterResult && whole.replacesValue && whole.isExceptionExt);
    EXPECT_STREQ("java/util/Map$Entry", result.descriptors[1]->instanceOfClass.c_str());
    const ProbeDescriptor& objects = *result.descriptors[2];
    EXPECT_STREQ("", objects.instanceOfClass.c_str()) << "any object, static methods too";
    EXPECT_STREQ("V", objects.getCallbackReturnType().c_str());
    EXPECT_FALSE(objects.usesOnEnterResult || objects.replacesValue);
}

TEST_F(ProbeRegistration, tellsEachRuleThatAClassBreaksAndDescribesTheOthers) {
    std::vector<std::string> folders = compileFaultsAgain();
    folders.push_back(FAULTS);
    for (const std::string& folder : folders) {
        SCOPED_TRACE(folder);
        checkRules(folder);
        checkDescriptors(folder);
    }
}

TEST_F(ProbeRegistration, warningsCountAsErrorsIfTheOptionSaysSo) {
    ProbeCreationResult result;
    create(classFile("Unused"), &result);
    EXPECT_EQ(std::string("\n") + UNUSED_RESULT, result.getAllMessages().c_str());
    EXPECT_STREQ("", result.getAllErrors().c_str());
    EXPECT_TRUE(result.isOK());
    EXPECT_EQ(1, result.descriptors.getSize());
    ourOptions->probeWarningsAsErrors = true;
    EXPECT_FALSE(result.isOK());
    EXPECT_EQ(std::string("\n") + UNUSED_RESULT, result.getAllErrors().c_str());
}

// What is wrong with one class of a batch hides nothing of the next one.
TEST_F(ProbeRegistration, malformedClassIsAnErrorAndTheRestGoesOn) {
    const std::string good = classFile("Whole");
    ProbeCreationResult result;
    create("no class at all", &result);
    EXPECT_THAT(texts(result.messages), ElementsAre("Error: invalid class file"));
    create(good, &result);
    EXPECT_EQ(1, result.descriptors.getSize());
    create(classFile("Patterns"), &result);
    EXPECT_EQ(3, result.messages.getSize());
    for (size_t length = 0; length < good.size(); length++) {
        ProbeCreationResult cut;
        create(good.substr(0, length), &cut);
        EXPECT_THAT(texts(cut.messages), ElementsAre("Error: invalid class file")) << length;
    }
    // An integer where the annotation has a list of texts.
    std::string forged = good;
    const size_t tag = forged.rfind("[\0\2s"s);
    ASSERT_NE(std::string::npos, tag);
    forged[tag] = 'I';
    ProbeCreationResult refused;
    create(forged, &refused);
    EXPECT_THAT(texts(refused.messages), ElementsAre("Error: invalid class file"));
    EXPECT_EQ(0, refused.descriptors.getSize());
}

TEST_F(ProbeRegistration, findsClassesAndThoseNestedInThemInFoldersAndArchives) {
    const std::string folder = makeTemporaryDirectory();
    std::filesystem::create_directories(folder + "/p");
    for (const char* const name : {"Whole", "Entries", "Plain"}) {
        const std::string file = std::string("Faults$") + name + ".class";
        std::filesystem::copy_file(FAULTS + "/" + file, folder + "/" + file);
    }
    std::filesystem::copy_file(FAULTS + "/Faults.class", folder + "/FaultsNot.class");
    const std::string jar = folder + "/p/probes.jar";
    const std::string pack = std::string(VDK_BUILD_JDK) + "/bin/jar cf " + jar + " -C " + folder;
    std::string output;
    ASSERT_EQ(0, runCommand(pack + " 'Faults$Whole.class' -C " + folder +
                                " 'Faults$Entries.class' -C " + folder +
                                " 'Faults$Plain.class' -C " + folder + " FaultsNot.class",
                            &output))
        << output;
    for (const std::string& element : {folder, jar}) {
        SCOPED_TRACE(element);
        ProbeCreationResult all;
        search(element, {"Faults"}, &all);
        EXPECT_STREQ("", all.getAllMessages().c_str());
        EXPECT_EQ(2, all.descriptors.getSize());
        EXPECT_EQ(3, all.scannedClasses.getSize()) << all.getScannedClasses().c_str();

        ProbeCreationResult missing;
        search(element, {"p/Missing", "Faults$Whole", "Gone"}, &missing);
        EXPECT_THAT(texts(missing.messages),
                    ElementsAre("Error: probe class p/Missing: class not found",
                                "Error: probe class Gone: class not found"));

        ProbeCreationResult noProbe;
        search(element, {"FaultsNot", "Faults$Whole", "Faults$Plain"}, &noProbe);
        EXPECT_THAT(
            texts(noProbe.messages),
            ElementsAre("Error: no probes found among these classes: FaultsNot, Faults$Plain"));
    }
    // The runtime archive stores its entries.
    ProbeCreationResult stored;
    search(VDK_RUNTIME_ARCHIVE, {"com/vandrik/probes/Table"}, &stored);
    EXPECT_STREQ("com.vandrik.probes.Table", stored.getScannedClasses().c_str());
    const std::string archive = readBinaryFile(VDK_RUNTIME_ARCHIVE);
    Probes::setRuntimeArchive(reinterpret_cast<const unsigned char*>(archive.data()),
                              static_cast<long>(archive.size()));
    ProbeCreationResult inMemory;
    search("/no/such/folder", {"com/vandrik/probes/Table"}, &inMemory);
    Probes::setRuntimeArchive(nullptr, 0);
    EXPECT_STREQ("com.vandrik.probes.Table", inMemory.getScannedClasses().c_str());
    std::filesystem::create_directory(folder + "/Faults$Folder.class");
    ProbeCreationResult unreadable;
    search(folder, {"Faults"}, &unreadable);
    EXPECT_EQ("\nError: failed to read " + folder + "/Faults$Folder.class",
              std::string(unreadable.getAllErrors().c_str()));
}

// Every byte of an archive may be wrong, and the end missing: an error for the user, and nothing
// worse.
TEST_F(ProbeRegistration, damagedArchiveIsToldOf) {
    const std::string folder = makeTemporaryDirectory();
    const std::string jar = folder + "/good.jar";
    ASSERT_EQ(0, runCommand(VDK_BUILD_JDK "/bin/jar cMf " + jar + " -C " + FAULTS +
                                " 'Faults$Entries.class'",
                            nullptr));
    const std::string good = readBinaryFile(jar);
    const std::string damaged = folder + "/damaged.jar";
    const std::string brokenContents = "\nError: unzip failed: Faults$Entries.class in " + damaged;
    const auto errorsOf = [&](const std::string& bytes) {
        // Writing a file anew is fast, writing over one is not.
        std::filesystem::remove(damaged);
        writeBinaryFile(damaged, bytes);
        ProbeCreationResult result;
        search(damaged, {"Faults$Entries"}, &result);
        EXPECT_EQ(result.isOK() ? 1 : 0, result.descriptors.getSize());
        return std::string(result.getAllErrors().c_str());
    };
    EXPECT_EQ("", errorsOf(good));
    int broken = 0;
    for (size_t at = 0; at < good.size(); at++) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ 0xff);
        broken += errorsOf(bytes) == brokenContents ? 1 : 0;
        // Of the end record the length of the comment is not needed.
        EXPECT_EQ(at + 3 >= good.size(), errorsOf(good.substr(0, at)).empty()) << at;
    }
    // The checksum finds what the deflated bytes don't tell.
    EXPECT_GT(broken, static_cast<int>(good.size()) / 2);
}

TEST_F(ProbeRegistration, listReplacesAndRemoves) {
    const std::string whole = classFile("Whole");
    ProbeCreationResult first;
    create(whole, &first);
    create(classFile("Entries"), &first);
    Probes::addProbes(&first);
    EXPECT_EQ(0, first.descriptors.getSize()) << "the list owns them";
    ASSERT_EQ(2, Probes::ourProbeDescriptors.getSize());
    EXPECT_THAT(texts(first.registeredClasses), ElementsAre("Faults$Whole", "Faults$Entries"));
    const ProbeDescriptor* const old = Probes::ourProbeDescriptors[0];

    ourOptions->probeWarningsAsErrors = true;
    ProbeCreationResult refused;
    create(whole, &refused);
    Probes::addProbes(&refused);
    EXPECT_EQ(old, Probes::ourProbeDescriptors[0]);
    EXPECT_FALSE(refused.isOK());
    ourOptions->probeWarningsAsErrors = false;
    ProbeCreationResult again;
    create(whole, &again);
    Probes::addProbes(&again);
    EXPECT_THAT(texts(again.messages),
                ElementsAre("Warning: probe class Faults$Whole: probe class with such name already "
                            "registered and will be replaced"));
    ASSERT_EQ(2, Probes::ourProbeDescriptors.getSize());
    EXPECT_STREQ("Faults$Whole", Probes::ourProbeDescriptors[1]->probeClass.c_str());

    ZVectorSafe<ZString> top;
    Probes::getTopProbeClasses(top, false);
    EXPECT_TRUE(top.isEmpty()) << "none is in force";
    Probes::ourProbeDescriptors[0]->status = PROBE_IN_FORCE;
    Probes::getTopProbeClasses(top, true);
    EXPECT_EQ(11, top.getSize());
    EXPECT_STREQ("com.vandrik.probes.builtin.AWTEvents", top[0].c_str());
    EXPECT_STREQ("com.vandrik.probes.builtin.Threads", top[9].c_str());
    EXPECT_STREQ("Faults", top[10].c_str());

    ZVectorSafe<ZString> removed;
    EXPECT_FALSE(Probes::removeProbes("Fault", removed));
    EXPECT_TRUE(removed.isEmpty());
    EXPECT_TRUE(Probes::removeProbes("Faults", removed));
    EXPECT_THAT(texts(removed), ElementsAre("Faults$Entries", "Faults$Whole"));
    ASSERT_EQ(1, Probes::ourProbeDescriptors.getSize()) << "one was in no class yet";
    EXPECT_EQ(PROBE_REMOVED, Probes::ourProbeDescriptors[0]->status);
}

} // namespace
