// The word that stands for an application, read off real-looking command lines.
#include "core/ground/SessionName.h"

#include "core/ground/Exceptions.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(SessionName, isReadOffTheCommandLine) {
    const struct {
        std::initializer_list<const char*> arguments;
        const char* name;
    } cases[] = {
        {{}, "unknown"},
        {{"java", "-Xmx1g", "-cp", "a.jar", "com.foo.Main"}, "Main"},
        {{"java", "-classpath", "a.jar", "-Dx", "Main", "-z", "other.Name"}, "Main"},
        {{"java", "-jar", "/opt/app/server.jar"}, "server"},
        {{"java", "-jar", "C:\\apps\\shop.jar", "x"}, "shop"},
        {{"java", "-jar", "/opt/app/server"}, "server"},
        {{"java", "org.apache.catalina.startup.Bootstrap", "start"}, "Tomcat"},
        {{"java", "com.sun.enterprise.glassfish.bootstrap.ASMain"}, "GlassFish"},
        {{"java", "org.eclipse.jetty.start.Main"}, "Jetty"},
        {{"java", "com.intellij.rt.execution.application.AppMain", "a.b.C"}, "C"},
        {{"/opt/IDEA/bin/Idea.exe", "-Xmx1g", "com.Main"}, "Idea.exe"},
        {{"/opt/netbeans/nbexec", "x.Y"}, "nbexec"},
        {{"/usr/bin/java", "-version"}, "java"},
        {{"C:\\jdk\\bin\\java.exe"}, "java.exe"},
        {{"java", "-cp"}, "java"},
        {{"java", "--module-path", "mods", "-m", "shop/com.shop.Main"}, "Main"},
        {{"java", "-p", "mods", "--module", "shop"}, "shop"},
        {{"java", "@options", "--add-opens", "java.base/java.lang=ALL-UNNAMED", "a.B"}, "B"},
    };
    for (const auto& testCase : cases) {
        ZVectorSafe<ZString> line;
        for (const char* argument : testCase.arguments) {
            line.push(argument);
        }
        EXPECT_STREQ(testCase.name, getSessionNameByCommandLine(line).c_str());
    }
}

TEST(SessionName, parametersOfThisProcessBeginWithTheProgram) {
    ZVectorSafe<ZString> line;
    getCommandLineParameters(&line, getpid());
    ASSERT_GE(line.getSize(), 1);
    EXPECT_TRUE(line[0].contains("unit_core"));
    EXPECT_THROW(getCommandLineParameters(&line, getpid()), VDKRuntimeException);
}
