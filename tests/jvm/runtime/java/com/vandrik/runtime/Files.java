package com.vandrik.runtime;

import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;

/** Directories and files of tests. */
final class Files {
    private Files() {
    }

    /** Goes at the end of the tests, with what is in it. */
    static File newDirectory() throws IOException {
        File made =
                java.nio.file.Files.createTempDirectory("vdk-runtime-test-").toRealPath().toFile();
        Runtime.getRuntime().addShutdownHook(new Thread(() -> delete(made)));
        return made;
    }

    private static void delete(File file) {
        File[] inner = file.listFiles();
        for (File each : inner == null ? new File[0] : inner) {
            delete(each);
        }
        file.delete();
    }

    static byte[] read(File file) throws IOException {
        return java.nio.file.Files.readAllBytes(file.toPath());
    }

    static File write(File file, String text) throws IOException {
        return write(file, text.getBytes(StandardCharsets.UTF_8));
    }

    static File write(File file, byte[] content) throws IOException {
        file.getParentFile().mkdirs();
        FileOutputStream out = new FileOutputStream(file);
        out.write(content);
        out.close();
        return file;
    }
}
