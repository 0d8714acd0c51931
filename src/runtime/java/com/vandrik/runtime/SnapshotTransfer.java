package com.vandrik.runtime;

import java.io.DataOutputStream;
import java.io.EOFException;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.util.zip.Deflater;

/** Sends snapshot files to a client, and the list of those that it may ask for. */
final class SnapshotTransfer {
    private static final int READ_SIZE = 65536;

    private SnapshotTransfer() {
    }

    static void writeList(DataOutputStream out, TransferrableSnapshotInfo[] snapshots)
            throws IOException {
        Packet.writeHeader(out);
        Packet.writeInt(out, snapshots.length);
        for (int i = 0; i < snapshots.length; i++) {
            TransferrableSnapshotInfo snapshot = snapshots[i];
            Packet.writeString(out, snapshot.myPath);
            Packet.writeString(out, snapshot.myDigest);
            Packet.writeLong(out, snapshot.mySize);
            Packet.writeLong(out, snapshot.myLastModifiedMs);
            Packet.writeLong(out, snapshot.myFlags);
        }
    }

    /**
     * Answers with the file. Gives the text of a refusal, in which case nothing was written. A file
     * that gets shorter meanwhile ends the connection; one that grows is sent as long as it was.
     */
    static String send(DataOutputStream out, String path, boolean compressed) throws IOException {
        File file = new File(path);
        if (!isTransferrableSnapshot(file, path)) {
            return "File cannot be transferred: unknown snapshot " + path;
        }
        if (!file.isFile()) {
            return "The file to transfer does not exist: " + path;
        }
        InputStream in;
        try {
            in = new FileInputStream(file);
        } catch (IOException e) {
            return "The file to transfer cannot be read: " + e.getMessage();
        }
        try {
            long length = file.length();
            Packet.writeHeader(out);
            Packet.writeLong(out, length);
            if (compressed) {
                sendCompressed(out, in, length);
            } else {
                sendPlain(out, in, length);
            }
        } finally {
            in.close();
        }
        return null;
    }

    /** A client gets snapshots and what lies in a public directory, and no other file. */
    private static boolean isTransferrableSnapshot(File file, String path) {
        return Callback.findSnapshot(path) || Core.isPublicDirectory(file.getParentFile());
    }

    static void sendPlain(DataOutputStream out, InputStream in, long length) throws IOException {
        byte[] buffer = new byte[READ_SIZE];
        long left = length;
        while (left > 0) {
            int count = in.read(buffer, 0, (int) Math.min(buffer.length, left));
            if (count < 0) {
                throw new EOFException("the snapshot file was cut");
            }
            Packet.writeBytes(out, buffer, count);
            left -= count;
        }
    }

    /** Each chunk of the file is a raw deflate stream of its own, cut into blocks. */
    static void sendCompressed(DataOutputStream out, InputStream in, long length)
            throws IOException {
        byte[] chunk = new byte[Protocol.TRANSFER_UNCOMPRESSED_CHUNK_SIZE];
        byte[] block = new byte[Protocol.TRANSFER_COMPRESSED_CHUNK_SIZE];
        Deflater deflater = new Deflater(Deflater.DEFAULT_COMPRESSION, true);
        try {
            long left = length;
            while (left > 0) {
                int count = (int) Math.min(chunk.length, left);
                readFully(in, chunk, count);
                left -= count;
                deflater.reset();
                deflater.setInput(chunk, 0, count);
                deflater.finish();
                int produced;
                do {
                    produced = deflater.deflate(block, 0, block.length);
                    Packet.writeInt(out, produced);
                    Packet.writeBytes(out, block, produced);
                } while (produced != 0);
            }
        } finally {
            deflater.end();
        }
    }

    private static void readFully(InputStream in, byte[] bytes, int count) throws IOException {
        int used = 0;
        while (used < count) {
            int got = in.read(bytes, used, count - used);
            if (got < 0) {
                throw new EOFException("the snapshot file was cut");
            }
            used += got;
        }
    }
}
