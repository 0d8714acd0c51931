package com.vandrik.probes.builtin;

import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.Param;
import com.vandrik.probes.ReturnValue;
import com.vandrik.probes.This;
import java.lang.reflect.Field;
import java.util.Map;
import java.util.Properties;

/** Makes the agent's classes visible to module systems that hide what they don't know. */
public final class AgentLoadingSupport {
    private static final String PACKAGE = "com.vandrik";
    private static final String JBOSS_PACKAGES = "jboss.modules.system.pkgs";
    private static final String BOOT_DELEGATION = "org.osgi.framework.bootdelegation";

    private AgentLoadingSupport() {
    }

    static String append(String list, String item) {
        return list == null || list.isEmpty() ? item : list + "," + item;
    }

    static boolean isOurs(String packageName) {
        return packageName != null &&
                (packageName.equals(PACKAGE) || packageName.startsWith(PACKAGE + "."));
    }

    @SuppressWarnings("unchecked")
    static void delegate(Object configuration) {
        if (!(configuration instanceof Map)) {
            return;
        }
        try {
            Map<Object, Object> map = (Map<Object, Object>) configuration;
            Object old = map.get(BOOT_DELEGATION);
            if (old == null || old instanceof String) {
                map.put(BOOT_DELEGATION, append((String) old, PACKAGE + ".*"));
            }
        } catch (RuntimeException e) {
            Outermost.failed(e);
        }
    }

    /** JBoss Modules reads a property. */
    @MethodPattern("org.jboss.modules.PropertyReadAction:run()")
    public static final class JBossModules {
        private JBossModules() {
        }

        public static String onReturn(@This Object action, @ReturnValue String value) {
            try {
                Field key = action.getClass().getDeclaredField("key");
                key.setAccessible(true);
                return JBOSS_PACKAGES.equals(key.get(action)) ? append(value, PACKAGE) : value;
            } catch (Exception e) {
                Outermost.failed(e);
                return value;
            }
        }
    }

    /** Felix gathers its configuration. */
    @MethodPattern("org.apache.felix.main.Main:copySystemProperties(java.util.Properties)")
    public static final class FelixMain {
        private FelixMain() {
        }

        public static void onReturn(@Param(1) Properties configuration) {
            delegate(configuration);
        }
    }

    /** Felix is started by a program. */
    @MethodPattern("org.apache.felix.framework.FrameworkFactory:newFramework(java.util.Map)")
    public static final class FelixFactory {
        private FelixFactory() {
        }

        public static void onEnter(@Param(1) Map<?, ?> configuration) {
            delegate(configuration);
        }
    }

    /** Modules ask whether a package comes from the boot loader. */
    @MethodPattern({"org.apache.felix.framework.ModuleImpl:shouldBootDelegate(String)",
                    "com.prosyst.mbs.impl.framework.PackagesManager:isSystemPackage(String)"})
    public static final class BootPackages {
        private BootPackages() {
        }

        public static boolean onReturn(@Param(1) String packageName, @ReturnValue boolean answer) {
            return answer || isOurs(packageName);
        }
    }
}
