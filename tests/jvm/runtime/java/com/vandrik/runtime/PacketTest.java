package com.vandrik.runtime;

import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.EOFException;
import java.util.Arrays;
import jvmtest.Check;

final class PacketTest {
    private PacketTest() {
    }

    private static DataInputStream input(int... bytes) {
        byte[] copy = new byte[bytes.length];
        for (int i = 0; i < bytes.length; i++) {
            copy[i] = (byte) bytes[i];
        }
        return new DataInputStream(new ByteArrayInputStream(copy));
    }

    static void testStringsTravelWithNullAndEmptyTold() throws Exception {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        DataOutputStream out = new DataOutputStream(bytes);
        String[] texts = {null, "", "a", "\u00e4\u20ac\ud83d\ude00\u0000"};
        for (String text : texts) {
            Packet.writeString(out, text);
        }
        byte[] sent = bytes.toByteArray();
        Check.equal(sent[0] & sent[3], -1, "first byte of a null string");
        Check.equal(sent[4] + sent[5] + sent[6] + sent[7], 0, "length of the empty string");
        DataInputStream in = new DataInputStream(new ByteArrayInputStream(sent));
        for (String text : texts) {
            Check.equal(Packet.readString(in), text, "string");
        }
        Check.equal(in.read(), -1, "rest");
    }

    static void testBadStringsAreRefusedWithTheirDetail() throws Exception {
        Object[][] cases = {
                {input(255, 255, 255, 254), "Negative string length: -2"},
                {input(0x80, 0, 0, 0), "Negative string length: -2147483648"},
                {input(0x7f, 255, 255, 255), "Cannot allocate 2147483647 bytes"},
                {input(1, 0, 0, 1), "Cannot allocate 16777217 bytes"},
                {input(255, 255, 255, 255), "Unexpected null string"},
        };
        for (Object[] row : cases) {
            try {
                Packet.readStringNotNull((DataInputStream) row[0]);
                throw new AssertionError("accepted, expected: " + row[1]);
            } catch (PresentableException e) {
                Check.equal(e.getMessage(), Protocol.INCORRECT_DATA_MESSAGE, "message");
                Check.equal(e.getDetail(), row[1], "detail");
            }
        }
    }

    static void testALengthThatIsALieCostsNoMemory() throws Exception {
        try {
            Packet.readString(input(0, 255, 255, 255, 'x'));
            throw new AssertionError("accepted");
        } catch (EOFException expected) {
            // 16 MB were promised and one byte came
        }
    }

    static void testLongStringsArriveWhole() throws Exception {
        char[] letters = new char[1000003];
        Arrays.fill(letters, 'q');
        letters[999999] = '\u20ac';
        String text = new String(letters);
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        Packet.writeString(new DataOutputStream(bytes), text);
        Check.isTrue(text.equals(Packet.readString(
                             new DataInputStream(new ByteArrayInputStream(bytes.toByteArray())))),
                     "long string");
    }

    static void testErrorPacketsAndStrangersBecomeExceptions() throws Exception {
        ByteArrayOutputStream stranger = new ByteArrayOutputStream();
        Packet.writeHeader(new DataOutputStream(stranger), 5);
        String[][] cases = {
                {"no such thing", "no such thing", null},
                {"Unknown packet type: 9. Reason: x", Protocol.INCOMPATIBLE_AGENT_MESSAGE,
                 "Unknown packet type: 9. Reason: x"},
                {null, Protocol.INCOMPATIBLE_AGENT_MESSAGE, "Wrong packet type: 5, expected 1"},
        };
        for (String[] row : cases) {
            ByteArrayOutputStream bytes = row[0] == null ? stranger : new ByteArrayOutputStream();
            if (row[0] != null) {
                Packet.writeError(new DataOutputStream(bytes), row[0]);
            }
            try {
                Packet.readHeaderWithStandardResponse(
                        new DataInputStream(new ByteArrayInputStream(bytes.toByteArray())));
                throw new AssertionError("accepted: " + row[0]);
            } catch (PresentableException e) {
                Check.equal(e.getMessage(), row[1], "message");
                Check.equal(e.getDetail(), row[2], "detail");
            }
        }
    }
}
