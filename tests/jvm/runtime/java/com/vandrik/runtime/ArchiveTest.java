package com.vandrik.runtime;

import java.io.ByteArrayInputStream;
import java.io.DataInputStream;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.Collections;
import java.util.HashSet;
import java.util.Set;
import java.util.jar.JarFile;
import java.util.zip.ZipEntry;
import jvmtest.Check;

/** The archive as the library carries it. Its path is the property "archive". */
final class ArchiveTest {
    private static final int LEVEL_JAVA_7 = 51;

    private ArchiveTest() {
    }

    private static JarFile open() throws IOException {
        return new JarFile(System.getProperty("archive"), true);
    }

    private static byte[] read(JarFile jar, ZipEntry entry) throws IOException {
        try (InputStream in = jar.getInputStream(entry)) {
            return in.readAllBytes();
        }
    }

    static void testNoClassIsNewerThanJava7OrNeedsInvokedynamic() throws Exception {
        try (JarFile jar = open()) {
            int classes = 0;
            for (ZipEntry entry : Collections.list(jar.entries())) {
                if (entry.getName().endsWith(".class")) {
                    checkClass(entry.getName(), read(jar, entry));
                    classes++;
                }
            }
            Check.isTrue(classes > 50, "classes: " + classes);
        }
    }

    private static void checkClass(String name, byte[] content) throws IOException {
        DataInputStream in = new DataInputStream(new ByteArrayInputStream(content));
        Check.equal(in.readInt(), 0xcafebabe, "magic of " + name);
        in.readUnsignedShort();
        Check.isTrue(in.readUnsignedShort() <= LEVEL_JAVA_7, "level of " + name);
        int count = in.readUnsignedShort();
        for (int i = 1; i < count; i++) {
            int tag = in.readUnsignedByte();
            Check.isTrue(tag < 15, name + " has a constant of kind " + tag);
            if (tag == 1) {
                in.skipBytes(in.readUnsignedShort());
            } else {
                in.skipBytes(tag == 7 || tag == 8 ? 2 : tag == 5 || tag == 6 ? 8 : 4);
                i += tag == 5 || tag == 6 ? 1 : 0;
            }
        }
    }

    static void testEntriesAreStoredAndDatedAlike() throws Exception {
        try (JarFile jar = open()) {
            Set<Long> dates = new HashSet<>();
            for (ZipEntry entry : Collections.list(jar.entries())) {
                Check.equal(entry.getMethod(), ZipEntry.STORED, "method of " + entry);
                Check.isTrue(entry.getExtra() == null, "extra field of " + entry);
                dates.add(entry.getTime());
            }
            Check.equal(dates.size(), 1, "different dates");
        }
    }

    /** Defines all classes in a loader of its own, as native code does on the boot loader. */
    static void testClassesCanBeDefinedInTheOrderOfTheEntries() throws Exception {
        Definer definer = new Definer();
        try (JarFile jar = open()) {
            for (ZipEntry entry : Collections.list(jar.entries())) {
                String name = entry.getName();
                if (name.endsWith(".class")) {
                    definer.define(name.substring(0, name.length() - 6).replace('/', '.'),
                                   read(jar, entry));
                }
            }
        }
    }

    private static final class Definer extends ClassLoader {
        Definer() {
            super(null);
        }

        void define(String name, byte[] content) {
            defineClass(name, content, 0, content.length);
        }

        @Override
        protected Class<?> findClass(String name) throws ClassNotFoundException {
            throw new AssertionError(name + " is needed before its entry");
        }
    }

    static void testTheSameClassesGiveTheSameBytes() throws Exception {
        byte[] first = Files.read(new File(System.getProperty("archive")));
        byte[] second = Files.read(new File(System.getProperty("archive.again")));
        Check.isTrue(Arrays.equals(first, second), "a second build differs");
    }

    static void testNativesOfCallbackAreTheTable() throws Exception {
        // RegisterNatives of the whole table has worked, or nothing here would run; what is left is
        // that Callback declares no native beyond it.
        int natives = 0;
        for (Method method : Callback.class.getDeclaredMethods()) {
            int modifiers = method.getModifiers();
            if (Modifier.isNative(modifiers)) {
                Check.isTrue(Modifier.isPublic(modifiers) && Modifier.isStatic(modifiers),
                             method.toString());
                natives++;
            }
        }
        Check.equal(natives, 112, "natives");
    }

    static void testSwitchedOffCallbacksDoNothing() {
        Callback.vdkMethodCatch((short) 1, (short) 0);
        Callback.vdkMethodCatchF((short) 1, (short) 0);
        Check.equal(Callback.vdkInit(null, 5), -1, "vdkInit");
        Check.equal(Callback.vdkInitF(null, 5), -1, "vdkInitF while off");
        Callback.ourVDKAlloc = true;
        try {
            Check.equal(Callback.vdkInitF(null, 5), 0, "vdkInitF asks the native");
        } finally {
            Callback.ourVDKAlloc = false;
        }
    }
}
