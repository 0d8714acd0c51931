package com.vandrik.runtime;

import com.vandrik.Constants;
import com.vandrik.util.SnapshotDigest;
import java.io.ByteArrayOutputStream;
import java.io.File;
import java.nio.charset.StandardCharsets;
import java.util.Calendar;
import java.util.GregorianCalendar;
import java.util.Locale;
import jvmtest.Check;

/** Names of files and directories, quoting, requirements. */
final class NamesTest {
    private NamesTest() {
    }

    private static String suggest(File directory, String session, String pattern) {
        Calendar date = new GregorianCalendar(2026, Calendar.MARCH, 7, 5, 9);
        return Agent.suggestSnapshotFile(directory, session, ".snapshot", pattern, date)
                .getPath()
                .substring(directory.getPath().length() + 1);
    }

    static void testMacrosOfPatterns() throws Exception {
        File directory = Files.newDirectory();
        String[][] cases = {
                {"", "My_App-2026-03-07.snapshot"},
                {null, "My_App-2026-03-07.snapshot"},
                {"x<datetime>y", "x2026-03-07-05-09y.snapshot"},
                {"<sessionname><sessionname>", "My_AppMy_App.snapshot"},
                {"a/b/<date>", "a/b/2026-03-07.snapshot"},
                {"plain", "plain.snapshot"},
        };
        for (String[] row : cases) {
            Check.equal(suggest(directory, "My App", row[0]), row[1], "pattern " + row[0]);
        }
    }

    static void testDatesDoNotDependOnTheLocale() throws Exception {
        Locale before = Locale.getDefault();
        Locale.setDefault(new Locale("th", "TH", "TH"));
        try {
            String name =
                    Agent.suggestSnapshotFile(Files.newDirectory(), "s", ".snapshot", "<date>")
                            .getName();
            Check.isTrue(name.matches("20[0-9]{2}-[0-9]{2}-[0-9]{2}\\.snapshot"), name);
        } finally {
            Locale.setDefault(before);
        }
    }

    static void testSessionNameKeepsLettersDigitsAndDots() {
        Check.equal(Agent.sessionNameToFileNamePart("a.B 1/2<\u00e4>-"), "a.B_1_2_\u00e4__",
                    "name");
    }

    static void testTheNextNumberFollowsTheLargest() throws Exception {
        String[][] cases = {
                {"base-1.snapshot", "base.snapshot"},
                {"base-8.snapshot", "base.snapshot", "base-7.snapshot"},
                {"base-8.snapshot", "base-7.snapshot"},
                {"base.snapshot", "base-x.snapshot", "base-.snapshot", "base-7.hprof",
                 "base(3).snapshot", "other-9.snapshot", "base-99999999999.snapshot"},
                {"base.snapshot"},
        };
        for (String[] row : cases) {
            File directory = Files.newDirectory();
            for (int i = 1; i < row.length; i++) {
                Files.write(new File(directory, row[i]), "");
            }
            Check.equal(suggest(directory, "s", "base"), row[0], "after " + String.join(" ", row));
        }
    }

    static void testQuoting() {
        String text = "a,b c=\u20ac\n";
        Check.equal(Quoter.unquote(Quoter.quote(text)), text, "there and back");
        Check.equal(Quoter.quote("a,"), "VDKQUOTED612c", "quoted");
        Check.equal(Quoter.unquote("VDKQUOTED2C2c"), ",,", "digits of both cases");
        for (String plain :
             new String[] {"", "VDKQUOTE2c", "xVDKQUOTED2c", "VDKQUOTED2", "VDKQUOTEDzz"}) {
            Check.equal(Quoter.unquote(plain), plain, "not quoted");
        }
    }

    static void testTheFirstUsableDirectoryIsTaken() throws Exception {
        File root = Files.newDirectory();
        File config = new File(root, "config");
        File standard = new File(root, "standard");
        File alternate = new File(root, "new/alternate");
        Check.equal(SnapshotDirectory0.getSnapshotDirectory("", config, standard), standard,
                    "default");
        Check.isTrue(standard.isDirectory(), "the default directory is made");
        File configured = new File(root, "configured");
        File file = Files.write(new File(config, ".snapshotdir"), configured.getPath() + "\n");
        Check.equal(SnapshotDirectory0.getSnapshotDirectory(null, config, standard), configured,
                    "configured");
        Check.equal(SnapshotDirectory0.getSnapshotDirectory(alternate.getPath(), config, standard),
                    alternate, "alternate");
        String underAFile = new File(file, "x").getPath();
        Check.equal(SnapshotDirectory0.getSnapshotDirectory(underAFile, config, standard),
                    configured, "an alternate that can't be made is passed over");
        Files.write(file, new byte[2048]);
        Check.equal(SnapshotDirectory0.getSnapshotDirectory(null, config, standard), standard,
                    "a long file configures nothing");
    }

    static void testRefusedJvms() {
        Check.equal(JvmRequirements.getRefusal("25", "Oracle Corporation", "25.0.3+9"), null, "25");
        Check.equal(JvmRequirements.getRefusal("1.6", "Sun", "20.1"), null, "6");
        Check.equal(
                JvmRequirements.getRefusal("1.5", "Sun", "1"),
                "Java 6 or newer is required. To profile on Java 5, use Vandrik Java Profiler 8.0.x",
                "5");
        Check.equal(JvmRequirements.getRefusal("1.6", "BEA Systems, Inc.", "R27.2.0-131-x"), null,
                    "JRockit");
        Check.contains(
                JvmRequirements.getRefusal("1.6", "BEA Systems, Inc.", "R27.1.1-9-x"),
                "this version of JRockit JVM is not supported. Please use JRockit 6 R27.2.0 or"
                        + " newer;",
                "old JRockit");
    }

    static void testDigestTellsFlagsOutOfTheHeader() throws Exception {
        File directory = Files.newDirectory();
        ByteArrayOutputStream header = new ByteArrayOutputStream();
        header.write(new byte[56]);
        header.write(66);
        byte[] creator = "Created by x".getBytes(StandardCharsets.US_ASCII);
        header.write(new byte[] {(byte) creator.length, 0, 0, 0});
        header.write(creator);
        header.write(new byte[24]);
        header.write(new byte[] {9, 2, 0, 0, 0, 0, 0, 0});
        byte[] bytes = header.toByteArray();
        File one = Files.write(new File(directory, "a.snapshot"), bytes);
        SnapshotDigest digest = SnapshotDigest.getSnapshotDigest(one);
        Check.equal(digest.getFlags(), 521L, "flags");
        Check.equal(
                SnapshotDigest
                        .getSnapshotDigest(Files.write(new File(directory, "b.snapshot"), bytes))
                        .getDigest(),
                digest.getDigest(), "equal content");
        bytes[60]++;
        File other = Files.write(new File(directory, "c.snapshot"), bytes);
        Check.isTrue(
                !SnapshotDigest.getSnapshotDigest(other).getDigest().equals(digest.getDigest()),
                "another header");
        for (int length = 0; length < bytes.length; length++) {
            File cut = Files.write(new File(directory, "d.snapshot"),
                                   java.util.Arrays.copyOf(bytes, length));
            Check.equal(SnapshotDigest.getSnapshotDigest(cut).getFlags(), 0L, "cut at " + length);
        }
        File dump = Files.write(new File(directory, "e.hprof"), "JAVA PROFILE");
        Check.equal(SnapshotDigest.getSnapshotDigest(dump).getFlags(),
                    Constants.SNAPSHOT_HPROF | Constants.SNAPSHOT_WITH_HEAP,
                    "flags of a heap dump");
    }
}
