package com.vandrik.runtime;

/** A snapshot file that a client may fetch. */
public final class TransferrableSnapshotInfo {
    public final String myPath;

    /** Equal for equal snapshots; see {@link com.vandrik.util.SnapshotDigest}. */
    public final String myDigest;

    public final long mySize;
    public final long myLastModifiedMs;

    /** The SNAPSHOT_ bits of {@link com.vandrik.Constants}. */
    public final long myFlags;

    TransferrableSnapshotInfo(String path, String digest, long size, long lastModifiedMs,
                              long flags) {
        myPath = path;
        myDigest = digest;
        mySize = size;
        myLastModifiedMs = lastModifiedMs;
        myFlags = flags;
    }
}
