#include "classfile/ClassScan.h"
#include "support/ClassBundle.h"
#include "support/ParsedClass.h"
#include "support/ReferenceClass.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>

// Every class of every JDK and jar of this machine is parsed and written back.

namespace {

std::vector<ReferenceAttribute> withoutFrames(std::vector<ReferenceAttribute> list) {
    list.erase(std::remove_if(list.begin(), list.end(),
                              [](const auto& each) { return each.first == "StackMapTable"; }),
               list.end());
    return list;
}

// Empty if the classes mean the same, else the first difference.
std::string difference(const ReferenceClass& a, const ReferenceClass& b, int* frames) {
    if (a.major != b.major || a.minor != b.minor || a.flags != b.flags ||
        a.thisClass != b.thisClass || a.superClass != b.superClass ||
        a.interfaces != b.interfaces || a.attributes != b.attributes) {
        return "class";
    }
    if (a.pool.size() > b.pool.size() ||
        !std::equal(a.pool.begin(), a.pool.end(), b.pool.begin())) {
        return "pool";
    }
    if (a.fields.size() != b.fields.size() || a.methods.size() != b.methods.size()) {
        return "members";
    }
    for (size_t i = 0; i < a.fields.size(); i++) {
        if (a.fields[i].flags != b.fields[i].flags || a.fields[i].name != b.fields[i].name ||
            a.fields[i].attributes != b.fields[i].attributes) {
            return "field " + a.fields[i].name;
        }
    }
    for (size_t i = 0; i < a.methods.size(); i++) {
        const ReferenceMethod& m = a.methods[i];
        const ReferenceMethod& n = b.methods[i];
        if (m.flags != n.flags || m.name != n.name || m.descriptor != n.descriptor ||
            m.attributes != n.attributes || m.maxStack != n.maxStack ||
            m.maxLocals != n.maxLocals || m.code != n.code || !(m.handlers == n.handlers) ||
            withoutFrames(m.codeAttributes) != withoutFrames(n.codeAttributes)) {
            return "method " + m.name + m.descriptor;
        }
        const std::vector<ReferenceFrame> expected = a.frames(m);
        if (!(expected == b.frames(n))) {
            return "frames of " + m.name + m.descriptor;
        }
        *frames += static_cast<int>(expected.size()) - 1;
    }
    return "";
}

// What a mere walk over the file tells is what the parsed class has.
bool scanAgrees(const NamedClass& entry, ClassFile& classFile) {
    bool natives = false;
    bool loadClass = false;
    bool named = false;
    SoughtNames names;
    names.add("commit");
    names.add("prepareStatement");
    for (int i = 0; i < classFile.getMethods().getSize(); i++) {
        natives = natives || classFile.getMethods()[i]->isNative();
        const Utf8View name = classFile.getMethods()[i]->getName();
        loadClass = loadClass || name == "loadClass";
        named = named || names.mayHave(reinterpret_cast<const unsigned char*>(name.getBytes()),
                                       name.getLength());
    }
    const ClassScan scan(entry.bytes, entry.length, &names);
    const ClassScan cut(entry.bytes, entry.length / 2);
    return scan.hasNatives() == natives && scan.hasLoadClass() == loadClass &&
           scan.mayHaveNamed() == named && cut.hasNatives();
}

void roundTrip(const char* label, const std::string& path) {
    const ClassBundle bundle(path);
    size_t compared = 0;
    size_t same = 0;
    int frames = 0;
    for (const NamedClass& entry : bundle.classes()) {
        try {
            DataInput input(entry.bytes, entry.length);
            ClassFile untouched(input);
            ASSERT_FALSE(untouched.isInvalid()) << entry.name;
            ASSERT_TRUE(scanAgrees(entry, untouched)) << entry.name;
            const std::string original(reinterpret_cast<const char*>(entry.bytes),
                                       static_cast<size_t>(entry.length));
            ASSERT_TRUE(writtenClass(untouched) == original) << entry.name;
            DataInput again(entry.bytes, entry.length);
            ClassFile classFile(again);
            classFile.encodeEverything();
            const std::string anew = writtenClass(classFile);
            const ReferenceClass before(entry.bytes, static_cast<size_t>(entry.length));
            const ReferenceClass after(anew.data(), anew.size());
            ASSERT_EQ(difference(before, after, &frames), "") << entry.name;
            compared++;
            same += anew == original ? 1 : 0;
        } catch (const VDKRuntimeException&) {
            FAIL() << "cannot parse " << entry.name;
        }
    }
    printf("%s: %zu classes, %zu the same when all is encoded anew, %d frames\n", label, compared,
           same, frames);
    EXPECT_GT(compared, 0u);
    EXPECT_GT(same, compared / 3) << "compilers write the shortest form of frames; so do we";
}

} // namespace

TEST(RoundTrip, classesOfAllJdksComeBack) {
    const std::vector<std::string> jdks = findJdks();
    ASSERT_FALSE(jdks.empty());
    for (const std::string& jdk : jdks) {
        roundTrip(jdk.c_str(), extractClasses(jdk, {"jrt"}));
    }
}

TEST(RoundTrip, classesOfSystemJarsComeBack) {
    const std::vector<std::string> jars = findSystemJars();
    if (jars.empty()) {
        GTEST_SKIP() << "no jars installed";
    }
    roundTrip("jars", extractClasses(findJdks().front(), jars));
}
