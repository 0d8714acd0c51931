package com.vandrik.runtime;

import com.vandrik.Constants;
import java.io.File;
import java.lang.reflect.Field;
import java.nio.charset.StandardCharsets;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import jvmtest.Check;

/** What is written down twice: the numbers of the protocol, version and limits. */
final class ProtocolTest {
    private ProtocolTest() {
    }

    private static String source(String path) throws Exception {
        File file = new File(System.getProperty("source"), path);
        return new String(Files.read(file), StandardCharsets.UTF_8);
    }

    private static Map<String, Integer> constants() throws Exception {
        Map<String, Integer> result = new TreeMap<>();
        for (Field field : Protocol.class.getFields()) {
            if (field.getName().startsWith("PACKET_")) {
                result.put(field.getName(), field.getInt(null));
            }
        }
        return result;
    }

    private static Map<String, Integer> find(String text, String pattern) {
        Map<String, Integer> result = new TreeMap<>();
        Matcher matcher = Pattern.compile(pattern).matcher(text);
        while (matcher.find()) {
            result.put(matcher.group(1), Integer.valueOf(matcher.group(2)));
        }
        return result;
    }

    static void testThePageListsEveryPacket() throws Exception {
        Map<String, Integer> page =
                find(source("docs/protocol.md"), "\\| `(PACKET_\\w+)` \\| (\\d+) \\|");
        Check.equal(page, constants(), "packets of the page");
    }

    static void testTheClientHasTheSameNumbersAndTexts() throws Exception {
        String header = source("src/client/agent/Protocol.h");
        Map<String, Integer> client = find(header, "(PACKET_\\w+) = (\\d+)");
        Check.isTrue(client.size() > 10, "packets of the client: " + client.size());
        for (Map.Entry<String, Integer> entry : client.entrySet()) {
            Check.equal(entry.getValue(), constants().get(entry.getKey()), entry.getKey());
        }
        String flat = header.replaceAll("\"\\s*\"", "").replace("\\n", "\n");
        for (String text : new String[] {Protocol.INCOMPATIBLE_AGENT_MESSAGE,
                                         Protocol.INCORRECT_DATA_FROM_AGENT_MESSAGE,
                                         Protocol.INCORRECT_DATA_MESSAGE}) {
            Check.contains(flat, "\"" + text + "\"", "texts of the client");
        }
        Check.contains(header, "Magic = " + Protocol.MAGIC + ";", "magic");
        Check.contains(header, "Version = " + Protocol.VERSION + ";", "version");
    }

    static void testThePageTellsTheLimitsInForce() throws Exception {
        String page = source("docs/protocol.md");
        String[] rows = {
                "| the first byte of a request | " + ControlSocket.FIRST_REQUEST_MS / 1000 + " s |",
                "| the first byte of the next request of a sequence | " +
                        ControlSocket.NEXT_REQUEST_MS / 1000 + " s |",
                "| more bytes of a request that has begun | " + ControlSocket.READ_STALL_MS / 1000 +
                        " s |",
                "| the last byte of a request, from its first | " +
                        ControlSocket.REQUEST_MS / 1000 + " s |",
                "| the client to take more of an answer | " + ControlSocket.WRITE_STALL_MS / 1000 +
                        " s |",
                "may be " + Packet.MAX_LENGTH + " bytes long",
        };
        for (String row : rows) {
            Check.contains(page, row, "limits of the page");
        }
    }

    static void testNativeSideHasTheSameVersion() throws Exception {
        String header = source("src/core/ground/Version.h");
        Check.contains(header, "VDK_BUILD_STAMP \"" + Constants.BUILD_STAMP + "\"", "build stamp");
        Matcher version = Pattern.compile("VDK_VERSION \"([^\"]+)\"").matcher(header);
        Check.isTrue(version.find(), "version");
        Check.equal(Constants.APP_FULL_NAME, "Vandrik Java Profiler " + version.group(1), "name");
    }
}
