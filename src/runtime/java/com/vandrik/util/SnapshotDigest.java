package com.vandrik.util;

import com.vandrik.Constants;
import java.io.DataInputStream;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;

/**
 * Tells one snapshot file from another without reading all of it: the header holds session, number
 * and time of capture, so head and length are enough. It also reads the flags out of the header.
 */
public final class SnapshotDigest {
    private static final int HEAD_SIZE = 4096;
    private static final int MAGIC_SIZE = 56;
    private static final int FORMAT_BYTE = 66;
    private static final int MAX_CREATOR_LENGTH = 1024;

    // FNV-1a, 64 bits.
    private static final long OFFSET_BASIS = 0xcbf29ce484222325L;
    private static final long PRIME = 0x100000001b3L;

    private final String myDigest;
    private final long myFlags;

    private SnapshotDigest(String digest, long flags) {
        myDigest = digest;
        myFlags = flags;
    }

    /** Digest and flags of a file. */
    public static SnapshotDigest getSnapshotDigest(File file) throws IOException {
        byte[] head = readHead(file);
        long hash = OFFSET_BASIS;
        for (int i = 0; i < head.length; i++) {
            hash = (hash ^ (head[i] & 255)) * PRIME;
        }
        String digest = Long.toHexString(hash) + "-" + Long.toHexString(file.length());
        boolean hprof = file.getName().endsWith(Constants.HPROF_EXTENSION);
        return new SnapshotDigest(digest,
                                  hprof ? Constants.SNAPSHOT_WITH_HEAP | Constants.SNAPSHOT_HPROF
                                        : flagsOf(head));
    }

    public String getDigest() {
        return myDigest;
    }

    public long getFlags() {
        return myFlags;
    }

    private static byte[] readHead(File file) throws IOException {
        DataInputStream in = new DataInputStream(new FileInputStream(file));
        try {
            byte[] head = new byte[(int) Math.min(HEAD_SIZE, file.length())];
            in.readFully(head);
            return head;
        } finally {
            in.close();
        }
    }

    /** Behind magic, format byte and creator: time, two ints and a long, then the flags. */
    private static long flagsOf(byte[] head) {
        int creator = MAGIC_SIZE + 1;
        if (head.length < creator + 4 || head[MAGIC_SIZE] != FORMAT_BYTE) {
            return 0;
        }
        long length = littleEndian(head, creator, 4);
        if (length < 0 || length > MAX_CREATOR_LENGTH) {
            return 0;
        }
        int flags = creator + 4 + (int) length + 8 + 4 + 4 + 8;
        return flags + 8 <= head.length ? littleEndian(head, flags, 8) : 0;
    }

    private static long littleEndian(byte[] bytes, int offset, int size) {
        long value = 0;
        for (int i = size - 1; i >= 0; i--) {
            value = value << 8 | (bytes[offset + i] & 255);
        }
        return value;
    }
}
