package com.vandrik.probes.triggers.actions;

import com.vandrik.probes.builtin.Messages;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.macros.MacroProcessor;
import com.vandrik.runtime.Callback;
import com.vandrik.util.Strings;
import java.io.FileOutputStream;
import java.io.IOException;

/** Writes a text, in which macros stand for values of the moment. */
public final class PrintMessageAction extends Action {
    private static final String CATEGORY = "Trigger";

    /** Longer ones are cut where they become rows of a table. */
    private static final int MAX_TABLE_TEXT = 100000;

    public String myMessage = "";

    /** Names, separated by commas: "stdout", "stderr", "messages", "agentlog", or files. */
    public String myOutput = "messages";

    private MacroProcessor myProcessor;
    private String[] mySinks;

    @Override
    protected void check() {
        myProcessor = new MacroProcessor(myMessage);
        mySinks = myOutput.split(",");
        for (int i = 0; i < mySinks.length; i++) {
            mySinks[i] = mySinks[i].trim();
            if (mySinks[i].isEmpty()) {
                throw new IllegalArgumentException("output names nothing: \"" + myOutput + "\"");
            }
        }
    }

    @Override
    public boolean isParamsNeeded() {
        return myProcessor.isParamsNeeded();
    }

    @Override
    protected void perform(MethodCall call) {
        String text = myProcessor.process(call);
        for (String sink : mySinks) {
            print(sink, text);
        }
    }

    private static void print(String sink, String text) {
        if (sink.equals("stdout")) {
            Callback.messageToStdout(text + "\n");
        } else if (sink.equals("stderr")) {
            Callback.messageToStderr(text + "\n");
        } else if (sink.equals("agentlog")) {
            Callback.messageToLogFile(text);
        } else if (sink.equals("messages")) {
            storeMessage(MacroProcessor.cut(text, MAX_TABLE_TEXT));
        } else {
            FileWriter.write(sink, text);
        }
    }

    /** Rows of the agent's own threads are left out otherwise. */
    private static void storeMessage(String text) {
        Callback.setThreadTemporaryEnabled(true);
        try {
            Messages.message(CATEGORY, text, null);
        } finally {
            Callback.setThreadTemporaryEnabled(false);
        }
    }

    /** Appends lines to files. One that is moved away is made anew by the next line. */
    static final class FileWriter {
        private FileWriter() {
        }

        static synchronized void write(String name, String text) {
            try {
                FileOutputStream out = new FileOutputStream(name, true);
                try {
                    out.write((text + "\n").getBytes(Strings.UTF8));
                } finally {
                    out.close();
                }
            } catch (IOException e) {
                Callback.messageToLogFile("Cannot write to file " + name + ": " +
                                          Strings.messageOf(e));
            }
        }
    }
}
