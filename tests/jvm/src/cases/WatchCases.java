package cases;

import fixtures.Watched;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import jvmtest.AgentClient;
import jvmtest.Case;
import jvmtest.Check;
import jvmtest.Target;

/** Watches: from the packets to the events, the sums, and the classes as they were. */
public final class WatchCases {
    private static final int START = 105800;
    private static final int READ = 105810;
    private static final int STOP = 105820;
    private static final int PROBES = 104900;

    private static final int ALL = 31;
    private static final int TO_STRING = 32;
    private static final int SUMS = 64;
    private static final String CART = "fixtures.Watched$Cart";

    private final Target target;
    private int asked;

    private WatchCases(Target target) {
        this.target = target;
    }

    /** One answer to a read; an event as one line. */
    private static final class Answer {
        long calls;
        long matched;
        long dropped;
        long failed;
        int state;
        int waiting;
        final List<String> events = new ArrayList<>();
        final List<String> stacks = new ArrayList<>();
        final List<String> threads = new ArrayList<>();
        final List<String> methods = new ArrayList<>();
    }

    private String ask(String line) throws Exception {
        int before = target.output().length();
        target.ask(line, "done " + ++asked);
        String output = target.output();
        return output.substring(before, output.indexOf("done " + asked + "\n", before)).trim();
    }

    private static AgentClient start(AgentClient client, String pattern, int flags, int most,
                                     int leaseMs, String where, String masks) throws IOException {
        client.request(START).string(pattern).string("").out.writeInt(flags);
        client.out.writeLong(0);
        client.out.writeLong(most);
        client.out.writeInt(0);
        client.out.writeInt(0);
        client.out.writeInt(leaseMs);
        return client.string(where).string(masks);
    }

    /** Checks the number of classes. */
    private int start(String pattern, int flags, int most, String where, String masks)
            throws IOException {
        try (AgentClient client = target.client()) {
            start(client, pattern, flags, most, 300000, where, masks).ok();
            int id = client.in.readInt();
            Check.equal(client.in.readInt(), 1, "classes woven for " + pattern);
            return id;
        }
    }

    private String refusal(String pattern, String where, String masks) throws IOException {
        try (AgentClient client = target.client()) {
            return start(client, pattern, ALL, 0, 0, where, masks).error();
        }
    }

    private Answer read(int id) throws IOException {
        try (AgentClient client = target.client()) {
            client.request(READ).out.writeInt(id);
            client.out.writeInt(100000);
            client.ok();
            Answer answer = new Answer();
            answer.calls = client.in.readLong();
            answer.matched = client.in.readLong();
            answer.dropped = client.in.readLong();
            answer.failed = client.in.readLong();
            answer.state = client.in.readInt();
            answer.waiting = client.in.readInt();
            for (int left = client.in.readInt(); left > 0; left--) {
                readEvent(client, answer);
            }
            for (int left = client.in.readInt(); left > 0; left--) {
                readMethod(client, answer);
            }
            return answer;
        }
    }

    private static void readEvent(AgentClient client, Answer answer) throws IOException {
        client.in.readLong();
        Check.isTrue(Math.abs(System.currentTimeMillis() - client.in.readLong()) < 600000, "end");
        Check.isTrue(client.in.readLong() >= 0, "duration");
        client.in.readLong();
        answer.threads.add(client.readString());
        client.readString();
        String objectType = client.readString();
        String line = client.readString() + client.readString();
        boolean isThrown = client.in.readInt() == 1;
        String object = client.readString();
        int arguments = client.in.readInt();
        String[] texts = new String[Math.max(0, arguments)];
        for (int i = 0; i < texts.length; i++) {
            texts[i] = client.readString();
        }
        line += " " + objectType + " " + object + " " + Arrays.toString(texts) + " -> " +
                client.readString() + (isThrown ? " throws " : " ") + client.readString();
        answer.events.add(line.replaceAll("@[0-9a-f]+", "@ID").replace(CART, "Cart"));
        StringBuilder stack = new StringBuilder();
        for (int left = client.in.readInt(); left > 0; left--) {
            stack.append(client.readString()).append('\n');
        }
        answer.stacks.add(stack.toString());
    }

    private static void readMethod(AgentClient client, Answer answer) throws IOException {
        String name = client.readString() + "." + client.readString() + client.readString();
        long calls = client.in.readLong();
        long errors = client.in.readLong();
        long total = client.in.readLong();
        long shortest = client.in.readLong();
        long longest = client.in.readLong();
        Check.isTrue(shortest <= longest && longest <= total && total <= calls * longest,
                     "times of " + name);
        long inBuckets = 0;
        for (int left = client.in.readInt(); left > 0; left--) {
            client.in.readInt();
            inBuckets += client.in.readLong();
        }
        Check.equal(inBuckets, calls, "calls in buckets");
        answer.methods.add(name.replace(CART, "Cart") + " " + calls + " " + errors);
    }

    private void stop(int id) throws IOException {
        try (AgentClient client = target.client()) {
            client.request(STOP).out.writeInt(id);
            client.ok();
        }
    }

    private String probes() throws IOException {
        StringBuilder names = new StringBuilder();
        try (AgentClient client = target.client()) {
            client.request(PROBES).ok();
            for (String name = client.readString(); name != null; name = client.readString()) {
                names.append(name).append(' ').append(client.in.readInt()).append('\n');
            }
        }
        return names.toString();
    }

    @Case(fixture = Watched.class, agent = "builtinprobes=none")
    static void callsAreToldWithWhatTheyWereGiven(Target target) throws Exception {
        WatchCases test = new WatchCases(target);
        test.ask("calls");
        int all = test.start("*Watched$Cart:*(*)", ALL, 0, "", "");
        int some = test.start(CART + ":add", 1 | 2, 0,
                              "args[0] == 'ink' || args[2].length == 2 && this.first.next.name == "
                                      + "\"ink\" || exception",
                              CART + ":add(String, int, Object) args[1] result");
        int asking = test.start(CART + ":*(*)", ALL | TO_STRING, 2, "result.name || exception",
                                "*:pay args[0]");
        int sums = test.start(CART + ":*(*)", SUMS, 0, "", "");
        Check.equal(test.ask("calls"), "asked 3", "code of the program that ran");
        Answer answer = test.read(all);
        String item = "fixtures.Watched$Item@ID";
        String add = "add(Ljava/lang/String;ILjava/lang/Object;)I Cart Cart@ID ";
        String depth = "depth(I)I null null ";
        Check.equal(String.join("\n", answer.events),
                    String.join("\n",
                                "<init>(Lfixtures/Watched$Item;)V Cart Cart@ID [" + item +
                                        "] -> null null",
                                add + "[\"pen \\\"7\\\"\\n\", 2, int[3]{1, 2, 3}] -> 4 null",
                                add + "[\"ink\", 3, RED] -> 6 null",
                                add + "[\"cap\", 4, fixtures.Watched$Item[2]{null, " + item +
                                        "}] -> 8 null",
                                "find(Lfixtures/Watched$Item;)Lfixtures/Watched$Item; null null [" +
                                        item + "] -> " + item + " null",
                                depth + "[0] -> 0 null", depth + "[1] -> 1 null",
                                depth + "[2] -> 2 null", depth + "[3] -> 3 null",
                                "pay(Ljava/lang/String;)V Cart Cart@ID [\"4711\"] -> null throws "
                                        + "fixtures.Watched$ShopException: refused 4711"),
                    "events");
        Check.isTrue(answer.stacks.get(1).startsWith(CART + ".add(Watched.java:"),
                     "stack: " + answer.stacks.get(1));
        Check.contains(answer.stacks.get(1), "\nfixtures.Watched.calls(Watched.java:", "stack");
        Check.equal(answer.calls + " " + answer.matched + " " + answer.dropped + " " +
                            answer.failed + " " + answer.state + " " + answer.waiting,
                    "10 10 0 0 0 0", "counts");
        answer = test.read(some);
        String masked = "add(Ljava/lang/String;ILjava/lang/Object;)I Cart null ";
        Check.equal(String.join("\n", answer.events),
                    masked + "[\"ink\", ***, RED] -> *** null\n" + masked +
                            "[\"cap\", ***, fixtures.Watched$Item[2]{null, " + item +
                            "}] -> *** null",
                    "filtered and masked");
        Check.equal(answer.calls + " " + answer.matched, "3 2", "counts of those");
        Check.equal(String.join("\n", test.read(sums).methods),
                    "Cart.<init>(Lfixtures/Watched$Item;)V 1 0\n"
                            + "Cart.add(Ljava/lang/String;ILjava/lang/Object;)I 3 0\n"
                            + "Cart.find(Lfixtures/Watched$Item;)Lfixtures/Watched$Item; 1 0\n"
                            + "Cart.depth(I)I 4 0\nCart.pay(Ljava/lang/String;)V 1 1",
                    "sums");
        answer = test.read(asking);
        String failing = "fixtures.Watched$Item!java.lang.IllegalStateException";
        Check.equal(String.join("\n", answer.events),
                    "find(Lfixtures/Watched$Item;)Lfixtures/Watched$Item; null null [" + failing +
                            "] -> " + failing + " null\npay(Ljava/lang/String;)V Cart Cart@ID "
                            + "[***] -> null throws fixtures.Watched$ShopException: own refused "
                            + "4711",
                    "as they print themselves");
        Check.equal(answer.state, 1, "as many as wanted");
        Check.await(() -> !test.probes().contains("Watch" + asking + "_"), "it is taken out");
        target.finish();
    }

    @Case(fixture = Watched.class, agent = "builtinprobes=none", attach = false)
    static void aHotMethodIsCountedAndRunsOn(Target target) throws Exception {
        WatchCases test = new WatchCases(target);
        int events = test.start("fixtures.Watched:hot(int)", ALL, 0, "", "");
        int never = test.start("fixtures.Watched:hot(int)", ALL, 0, "args[0] == -1", "");
        test.ask("hot");
        long[] inReads = new long[1];
        Check.await(100, () -> {
            Answer answer = test.read(events);
            inReads[0] += answer.events.size();
            return answer.dropped > 0 && inReads[0] > 1024;
        }, () -> "events are told and dropped");
        String[] hot = test.ask("cool").split(" ");
        Answer rest = test.read(events);
        long told = inReads[0] + rest.events.size();
        Check.equal(String.valueOf(rest.calls), hot[1], "calls");
        Check.equal(rest.matched, rest.calls, "all match");
        Check.equal(rest.failed + " " + (told + rest.dropped), "0 " + rest.calls,
                    "told or dropped");
        Check.equal(String.valueOf(test.read(never).calls), hot[1], "calls of the other");
        Check.equal(test.read(never).matched, 0L, "matched by the other");
        test.stop(events);
        test.stop(never);
        test.ask("hot");
        // More than there are places: classes are taken over.
        for (int i = 0; i < 18; i++) {
            int id = test.start("fixtures.Watched:hot(int)", i % 16 == 0 ? SUMS : ALL, 0, "", "");
            if (i % 16 < 2) {
                Check.await(() -> test.read(id).calls > 1000, "calls are seen");
            }
            test.stop(id);
        }
        Check.contains(target.log(), "Registered: com.vandrik.probes.watch.Watch4_7\n", "log");
        Check.isTrue(!target.log().contains("watch.Watch16"), "classes are taken over");
        hot = test.ask("cool").split(" ");
        // It is some milliseconds where nothing else wants the processors.
        Check.isTrue(Long.parseLong(hot[3]) < 3000, "the program stood still: " + hot[3] + " ms");
        target.finish();
    }

    /** Of classes that callbacks use themselves. */
    @Case(fixture = Watched.class, agent = "builtinprobes=none", load = false)
    static void classesOfTheJdkAreWatched(Target target) throws Exception {
        WatchCases test = new WatchCases(target);
        String key = "args[0] ~ 'a watched'";
        int[] ids = {test.start("java.util.HashMap:get(Object)", ALL, 0, key, ""),
                     test.start("java.lang.String:startsWith(String)", ALL, 0, key, ""),
                     test.start("java.lang.String:*(*)", SUMS, 0, "", ""),
                     test.start("java.lang.AbstractStringBuilder:append(String)", ALL, 0, key, ""),
                     test.start("java.util.concurrent.ConcurrentLinkedQueue:*(*)", ALL, 0, "", ""),
                     test.start("java.util.concurrent.atomic.AtomicLongArray:*(*)", 1, 0, "", "")};
        Check.equal(test.ask("jdk"), "length 14000", "as without watches");
        for (int i = 0; i < ids.length; i++) {
            Answer answer = test.read(ids[i]);
            Check.equal(answer.failed, 0L, "failed");
            if (i < 2) {
                Check.equal(answer.matched, 1000L, "matched");
                Check.equal(answer.events.size(), 1000, "events");
            }
            test.stop(ids[i]);
        }
        Check.equal(test.ask("jdk"), "length 14000", "behind them");
        target.finish();
    }

    @Case(fixture = Watched.class, agent = "builtinprobes=none", attach = false)
    static void whatNobodyReadsEnds(Target target) throws Exception {
        WatchCases test = new WatchCases(target);
        test.ask("calls");
        String before = test.probes();
        int id = -1;
        try (AgentClient client = target.client()) {
            start(client, CART + ":add", ALL, 0, 1000, "", "").ok();
            id = client.in.readInt();
        }
        Check.isTrue(test.probes().contains("Watch" + id + "_"), "registered: " + test.probes());
        Check.await(() -> test.probes().equals(before), "the probe is gone");
        Check.await(()
                            -> target.log().contains("Classes to retransform: 1 (unregister)\n  " +
                                                     CART + " <<< "),
                    "the calls are taken out");
        Check.contains(target.log(), "Watch " + id + " ends: nobody reads it", "log");
        try (AgentClient client = target.client()) {
            client.request(READ).out.writeInt(id);
            client.out.writeInt(0);
            Check.contains(client.error(), "there is no watch " + id, "answer");
        }
        Check.equal(test.refusal("nothing", "", ""),
                    "invalid pattern syntax, must be <class>:<method>(<params>)", "pattern");
        Check.contains(test.refusal("a.B:c", "args[0] = 1", ""),
                       "where, column 9 at \"=\": ", "condition");
        Check.contains(test.refusal("a.B:c", "", "# none\na.B:c password"),
                       "masks, line 2: ", "masks");
        target.finish();
    }
}
