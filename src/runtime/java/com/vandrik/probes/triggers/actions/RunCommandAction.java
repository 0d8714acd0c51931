package com.vandrik.probes.triggers.actions;

import com.vandrik.Constants;
import com.vandrik.probes.triggers.Duration;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.macros.MacroProcessor;
import com.vandrik.util.Strings;
import com.vandrik.util.ThreadUtil;
import java.io.IOException;
import java.io.InputStream;
import java.util.ArrayList;
import java.util.List;

/** Runs a program. There is no shell: what a macro stands for is part of one argument. */
public final class RunCommandAction extends BackgroundAction implements NeedsOption {
    static final BackgroundQueue QUEUE = new BackgroundQueue("VDKAgent-TriggerCommands", 100);

    private static final String OPTION = "allowcommands";
    private static final String TOOL_OPTIONS = "JAVA_TOOL_OPTIONS";
    private static final String AGENT = "vdkagent";
    private static final int STEP_MS = 10;
    private static final int DRAIN_MS = 1000;

    /** The program and its arguments, separated by blanks; macros may hold blanks of their own. */
    public String myCommand = "";

    /** After that it is killed. */
    public Duration myMaxTime = new Duration(1, Duration.Unit.MINUTES);

    private final List<MacroProcessor> myWords = new ArrayList<MacroProcessor>();

    @Override
    public String getNeededOption() {
        return OPTION;
    }

    @Override
    protected void check() {
        requireOption(OPTION, Constants.CAPABILITY_ALLOWS_COMMANDS);
        for (String word : split(myCommand)) {
            myWords.add(new MacroProcessor(word));
        }
        if (myWords.isEmpty()) {
            throw new IllegalArgumentException("command is missing");
        }
    }

    /** At blanks outside macros. */
    private static List<String> split(String command) {
        List<String> words = new ArrayList<String>();
        StringBuilder word = new StringBuilder();
        boolean isInMacro = false;
        for (int i = 0; i < command.length(); i++) {
            char c = command.charAt(i);
            isInMacro = isInMacro ? c != '}' : command.startsWith("${", i);
            if (c != ' ' || isInMacro) {
                word.append(c);
            } else if (word.length() != 0) {
                words.add(word.toString());
                word.setLength(0);
            }
        }
        if (word.length() != 0) {
            words.add(word.toString());
        }
        return words;
    }

    @Override
    public boolean isParamsNeeded() {
        for (MacroProcessor word : myWords) {
            if (word.isParamsNeeded()) {
                return true;
            }
        }
        return false;
    }

    @Override
    protected BackgroundQueue getQueue() {
        return QUEUE;
    }

    @Override
    protected Runnable prepare(MethodCall call) {
        final List<String> words = new ArrayList<String>();
        for (MacroProcessor word : myWords) {
            words.add(word.process(call));
        }
        return new Runnable() {
            @Override
            public void run() {
                try {
                    execute(words);
                } catch (IOException e) {
                    report(Strings.messageOf(e), null);
                }
            }
        };
    }

    private void execute(List<String> words) throws IOException {
        ProcessBuilder builder = new ProcessBuilder(words).redirectErrorStream(true);
        String options = builder.environment().get(TOOL_OPTIONS);
        if (options != null && options.contains(AGENT)) {
            // A Java program would run the same triggers.
            builder.environment().remove(TOOL_OPTIONS);
        }
        Process process = builder.start();
        process.getOutputStream().close();
        Output output = new Output(process.getInputStream());
        Thread reader = ThreadUtil.createDaemon("VDKAgent-TriggerOutput", output);
        reader.start();
        boolean hasEnded = awaitEnd(process);
        if (!hasEnded) {
            process.destroy();
        }
        try {
            reader.join(DRAIN_MS); // whom it has started may hold its output for longer
        } catch (InterruptedException e) {
            // what is there will do
        }
        report(hasEnded ? words.get(0) + " ended with exit code " + process.exitValue()
                        : words.get(0) + " was killed after " + myMaxTime,
               output.getText());
    }

    private boolean awaitEnd(Process process) {
        long limitMs = myMaxTime.toMilliseconds();
        for (long waitedMs = 0; waitedMs < limitMs; waitedMs += STEP_MS) {
            try {
                process.exitValue();
                return true;
            } catch (IllegalThreadStateException running) {
                ThreadUtil.sleep(STEP_MS);
            }
        }
        return false;
    }

    /** The first part of what a program prints; the rest is read and dropped. */
    private static final class Output implements Runnable {
        private static final int MAX_BYTES = 10000;

        private final InputStream myIn;
        private final byte[] myBytes = new byte[MAX_BYTES];
        private int myCount;

        Output(InputStream in) {
            myIn = in;
        }

        @Override
        public void run() {
            byte[] piece = new byte[MAX_BYTES];
            try {
                for (int count = myIn.read(piece); count >= 0; count = myIn.read(piece)) {
                    add(piece, count);
                }
            } catch (IOException e) {
                // killed; what came before stays
            }
        }

        private synchronized void add(byte[] piece, int count) {
            int taken = Math.min(count, MAX_BYTES - myCount);
            System.arraycopy(piece, 0, myBytes, myCount, taken);
            myCount += taken;
        }

        synchronized String getText() {
            return myCount == 0 ? null : new String(myBytes, 0, myCount, Strings.UTF8).trim();
        }
    }
}
