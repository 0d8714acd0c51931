#include "profiling/threads/UnloadedClasses.h"

#include "ToyJvm.h"
#include "probes/Filter.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ZFrameStorage.h"

#include <gtest/gtest.h>

namespace {

int stampOf(int method) {
    return ourDB->methodTable->getRecordModificationStamp(method);
}

// A row as the class load hook makes it, and the name of its class.
int rowFor(const char* className) {
    return ZMethod::getByName(className, "run", "()");
}
int nameOf(const char* className) {
    return ourDB->stringPool->getDBIndex(className, false);
}

} // namespace

TEST(UnloadedClasses, methodsGoUnlessAFrameNamesThemOrAClassOfTheirNameIsLoaded) {
    ToyJvm jvm;
    const jmethodID loaded = jvm.addMethod("La/Loaded;", "run", "()V");
    const jmethodID seen = jvm.addMethod("La/Seen;", "run", "()V");
    const jmethodID gone = jvm.addMethod("La/Gone;", "run", "()V");
    const int loadedRow = getMethodByID(jvm.env(), loaded);
    const int seenRow = getMethodByID(jvm.env(), seen);
    const int goneRow = getMethodByID(jvm.env(), gone);
    ourFrameStorage.getChild(0, seenRow);
    jvm.method(seen).unloaded = jvm.method(gone).unloaded = true;
    ourDB->currentStamp = 4;
    EXPECT_TRUE(UnloadedClasses::freeMethods(jvm.env()));
    EXPECT_EQ(1, stampOf(loadedRow));
    EXPECT_EQ(1, stampOf(seenRow));
    ASSERT_EQ(-4, stampOf(goneRow));
    const MethodRecord* row = ourDB->methodTable->getRecord(goneRow, false);
    EXPECT_EQ(0, row->classNameStrID + row->methodNameStrID + row->parametersStrID + row->flags);
    Filter::reloadFilters("*\n", "");
    EXPECT_EQ(-4, stampOf(goneRow)) << "filters leave deleted rows alone";
    Filter::reloadFilters("", ""); // they are the process's
    EXPECT_EQ(loadedRow, getMethodByID(jvm.env(), loaded));
    EXPECT_EQ(goneRow, rowFor("b.New")) << "the number is used again";
    EXPECT_NE(goneRow, rowFor("a.Gone")) << "a class of that name comes back";
}

TEST(UnloadedClasses, methodsOfClassesThatAreJustBeingDefinedStay) {
    ToyJvm jvm;
    const int outer = rowFor("a.Outer");
    UnloadedClasses::definitionBegins(nameOf("a.Outer"), 1000);
    const int inner = rowFor("a.Superclass");
    UnloadedClasses::definitionBegins(nameOf("a.Superclass"), 900);
    EXPECT_TRUE(UnloadedClasses::freeMethods(jvm.env()));
    EXPECT_EQ(1, stampOf(outer));
    EXPECT_EQ(1, stampOf(inner));
    const int next = rowFor("a.Interface");
    UnloadedClasses::definitionBegins(nameOf("a.Interface"), 900);
    EXPECT_TRUE(UnloadedClasses::freeMethods(jvm.env()));
    EXPECT_EQ(1, stampOf(outer)) << "still looking for its interfaces";
    EXPECT_EQ(-1, stampOf(inner)) << "failed: it is not among the loaded classes";
    EXPECT_EQ(1, stampOf(next));
    UnloadedClasses::threadEnds();
    EXPECT_TRUE(UnloadedClasses::freeMethods(jvm.env()));
    EXPECT_EQ(-1, stampOf(outer));
    EXPECT_EQ(-1, stampOf(next));
}

TEST(UnloadedClasses, walkWaitsForUnloadedClasses) {
    ToyJvm jvm;
    const int row = rowFor("a.Gone");
    for (int unloaded : {5000, 5999}) {
        UnloadedClasses::freeMethodsIfEarned(jvm.env(), unloaded);
        EXPECT_EQ(1, stampOf(row)) << unloaded;
    }
    UnloadedClasses::freeMethodsIfEarned(jvm.env(), 6000);
    EXPECT_EQ(-1, stampOf(row));
}
