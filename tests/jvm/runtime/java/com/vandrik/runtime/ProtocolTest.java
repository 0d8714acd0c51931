package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.api.ProfilingModes;
import com.vandrik.api.ProfilingModesExt;
import com.vandrik.api.TelemetryRecord;
import java.io.File;
import java.lang.reflect.Field;
import java.lang.reflect.Modifier;
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

    /** "0x40", "1024". */
    private static long number(String text) {
        return Long.decode(text);
    }

    /** Numbers of a C++ file by name: "NAME = 12", "V(12, NAME" and "NAME, 12". */
    private static Map<String, Long> numbersOf(String path) throws Exception {
        Map<String, Long> result = new TreeMap<>();
        String text = source(path);
        for (String pattern : new String[] {"\\b([A-Z][A-Z0-9_]+) = (0x[0-9a-f]+|-?\\d+)\\b",
                                            "\\b([A-Z][A-Z0-9_]+)\\(\\) = (-?\\d+)"}) {
            Matcher matcher = Pattern.compile(pattern).matcher(text);
            while (matcher.find()) {
                result.put(matcher.group(1), number(matcher.group(2)));
            }
        }
        Matcher row = Pattern.compile("\\b[A-Z]\\((\\d+), ([A-Z][A-Z0-9_]+),").matcher(text);
        while (row.find()) {
            result.put(row.group(2), number(row.group(1)));
        }
        return result;
    }

    private static Map<String, Long> numbersOf(Class<?> type) throws Exception {
        Map<String, Long> result = new TreeMap<>();
        for (Field field : type.getDeclaredFields()) {
            if (field.getType() == int.class || field.getType() == long.class) {
                field.setAccessible(true);
                if (Modifier.isStatic(field.getModifiers())) {
                    result.put(field.getName(), ((Number) field.get(null)).longValue());
                }
            }
        }
        return result;
    }

    /** Compares what both have, and says how many that must be at least. */
    private static void compareNumbers(Class<?> java, String path, int atLeast) throws Exception {
        Map<String, Long> theirs = numbersOf(path);
        int shared = 0;
        for (Map.Entry<String, Long> entry : numbersOf(java).entrySet()) {
            Long other = theirs.get(entry.getKey());
            if (other != null) {
                Check.equal(entry.getValue(), other,
                            java.getName() + " and " + path + ": " + entry.getKey());
                shared++;
            }
        }
        Check.isTrue(shared >= atLeast,
                     java.getName() + " shares " + shared + " numbers with " + path);
    }

    static void testNumbersThatBothSidesNameAreTheSame() throws Exception {
        compareNumbers(ProfilingModesExt.class, "src/core/ground/Globals.h", 6);
        compareNumbers(ProfilingModes.class, "src/core/ground/Globals.h", 2);
        compareNumbers(ProfilingModes.class, "src/client/agent/Protocol.h", 2);
        compareNumbers(ProfilingModesExt.class, "src/client/agent/Protocol.h", 2);
        compareNumbers(TelemetryRecord.class, "src/db/Records.h", 19);
        compareNumbers(Class.forName("com.vandrik.probes.Column"), "src/db/UserTable.h", 5);
        compareNumbers(Constants.class, "src/db/SnapshotCommon.h", 4);
        compareNumbers(Protocol.class, "src/db/Progress.cpp", 1);
        Check.equal(numbersOf("src/db/Progress.cpp").get("PACKET_MAGIC"), Protocol.MAGIC, "magic");
        Map<String, Long> catalogue = numbersOf("src/db/Records.h");
        Map<String, Long> requests = numbersOf(RequestProcessing.class);
        Check.contains(source("src/db/Records.h"),
                       "T(" + requests.get("ALLOCATOR_TABLE") + ", Allocator,", "allocator table");
        Check.equal(requests.get("FIRST_USER_TABLE"), catalogue.get("FIRST_USER_TABLE"),
                    "first user table");
        Check.equal(requests.get("TABLE_COUNT"), catalogue.get("MAX_TABLE_COUNT"), "tables");
    }

    /** Bit 4 of the status is "cpu-times" for the client and CPU_TIMES_BIT for the agent. */
    static void testTheClientNamesTheBitsThatTheAgentSets() throws Exception {
        Map<Long, String> bits = new TreeMap<>();
        for (Map.Entry<String, Long> entry : numbersOf("src/core/ground/Globals.h").entrySet()) {
            String name = entry.getKey();
            if (!name.startsWith("CAPABILITY_")) {
                bits.put(entry.getValue(), name.toLowerCase().replace('_', '-'));
            }
        }
        String header = source("src/client/agent/Protocol.h");
        String table = header.substring(header.indexOf("StatusBits[]"),
                                        header.indexOf("// Bits of the capability"));
        Matcher row = Pattern.compile("\\{(\\d+), \"([a-z0-9-]+)\"\\}").matcher(table);
        int rows = 0;
        while (row.find()) {
            String agent = bits.get(number(row.group(1)));
            String word = row.group(2).replaceAll("s$", "");
            Check.isTrue(agent != null && agent.contains(word), row.group() + " is " + agent);
            rows++;
        }
        Check.isTrue(rows >= 4, "rows of StatusBits: " + rows);
    }

    static void testNativeSideHasTheSameVersion() throws Exception {
        String header = source("src/core/ground/Version.h");
        Check.contains(header, "VDK_BUILD_STAMP \"" + Constants.BUILD_STAMP + "\"", "build stamp");
        Matcher version = Pattern.compile("VDK_VERSION \"([^\"]+)\"").matcher(header);
        Check.isTrue(version.find(), "version");
        Check.equal(Constants.APP_FULL_NAME, "Vandrik Java Profiler " + version.group(1), "name");
        Check.contains(source("CMakeLists.txt"),
                       "file(STRINGS src/core/ground/Version.h _version REGEX VDK_VERSION)",
                       "version of the build");
    }
}
