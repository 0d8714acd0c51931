package com.vandrik.runtime;

import com.vandrik.Constants;
import java.util.Properties;

/** Stores what is known about the JVM in the table of properties, once. */
final class AgentProperties {
    private static boolean ourInitialized;

    private AgentProperties() {
    }

    static synchronized void makeSurePropertiesInitialized() {
        if (ourInitialized) {
            return;
        }
        ourInitialized = true;
        Properties properties = System.getProperties();
        for (String name : properties.stringPropertyNames()) {
            Callback.setProperty(name, properties.getProperty(name));
        }
        Callback.setProperty("vdk.boot.class.path", getBootClassPath());
        Callback.setProperty("vdk.agent.version", Constants.APP_FULL_NAME + "; build "
                                                          + " " + Constants.BUILD_STAMP);
        JvmFacts facts = JvmFacts.get();
        Callback.setProperty("vdk.vm.starttime", Long.toString(facts.getStartTimeMs()));
        Callback.setProperty("vdk.input.arguments", facts.getInputArguments());
    }

    /** JVMs with modules know only what was appended to the boot class path. */
    private static String getBootClassPath() {
        String path = System.getProperty("sun.boot.class.path");
        return path != null ? path : System.getProperty("jdk.boot.class.path.append");
    }
}
