package com.vandrik.probes.triggers.actions;

import com.vandrik.Constants;
import com.vandrik.probes.triggers.Duration;
import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.macros.MacroProcessor;
import com.vandrik.runtime.Callback;
import com.vandrik.runtime.Core;
import com.vandrik.util.Strings;
import com.vandrik.util.ThreadUtil;
import java.io.IOException;
import java.io.OutputStream;
import java.net.HttpURLConnection;
import java.net.URL;
import java.util.ArrayList;
import java.util.List;

/**
 * Sends a message to a URL, as a JSON object. Classes of java.net are first used by the thread that
 * sends: the application may still have to set them up when the text is read.
 */
public final class PostWebhookAction extends BackgroundAction implements NeedsOption {
    /** Of servers, which are not held up by each other; more than so many share theirs. */
    private static final int MOST_QUEUES = 16;
    private static final List<BackgroundQueue> QUEUES = new ArrayList<BackgroundQueue>();
    private static final List<String> SERVERS = new ArrayList<String>();

    private static final String OPTION = "allowwebhooks";
    private static final int SERVER_FAULT = 500;
    private static final int FIRST_REFUSAL = 400;
    private static final int RETRY_AFTER_MS = 500;

    /** Begins with http:// or https://. */
    public String myUrl = "";

    public String myMessage = "";

    /** For the connection, and for the answer. */
    public Duration myTimeLimit = new Duration(10, Duration.Unit.SECONDS);

    /** Behind a first try that got no answer, or the answer that the server is in trouble. */
    public int myRetries = 2;

    private MacroProcessor myProcessor;

    @Override
    public String getNeededOption() {
        return OPTION;
    }

    @Override
    protected void check() {
        requireOption(OPTION, Constants.CAPABILITY_ALLOWS_WEBHOOKS);
        if (!myUrl.startsWith("http://") && !myUrl.startsWith("https://")) {
            throw new IllegalArgumentException("url begins with http:// or https://: " + myUrl);
        }
        if (myRetries < 0) {
            throw new IllegalArgumentException("retries is negative: " + myRetries);
        }
        myProcessor = new MacroProcessor(myMessage);
    }

    @Override
    public boolean isParamsNeeded() {
        return myProcessor.isParamsNeeded();
    }

    @Override
    protected BackgroundQueue getQueue() {
        int server = myUrl.indexOf('/', "https://".length());
        return queueOf(server < 0 ? myUrl : myUrl.substring(0, server));
    }

    private static synchronized BackgroundQueue queueOf(String server) {
        int index = SERVERS.indexOf(server);
        if (index >= 0) {
            return QUEUES.get(index);
        }
        if (QUEUES.size() == MOST_QUEUES) {
            return QUEUES.get((server.hashCode() & Integer.MAX_VALUE) % MOST_QUEUES);
        }
        SERVERS.add(server);
        QUEUES.add(new BackgroundQueue("VDKAgent-TriggerWebhooks-" + QUEUES.size(), 100));
        return QUEUES.get(QUEUES.size() - 1);
    }

    /** Until all is sent, or so long. */
    static void awaitAllSent(long limitMs) {
        long leftMs = limitMs;
        for (BackgroundQueue queue : getQueues()) {
            leftMs -= queue.awaitEmpty(leftMs);
        }
    }

    private static synchronized BackgroundQueue[] getQueues() {
        return QUEUES.toArray(new BackgroundQueue[0]);
    }

    @Override
    protected Runnable prepare(MethodCall call) {
        final String body = "{\"session\":" + quote(Core.getSessionName()) +
                            ",\"pid\":" + Callback.getPID() +
                            ",\"timeMs\":" + System.currentTimeMillis() +
                            ",\"listener\":" + quote(getOrigin()) +
                            ",\"message\":" + quote(myProcessor.process(call)) + "}";
        return new Runnable() {
            @Override
            public void run() {
                send(body.getBytes(Strings.UTF8));
            }
        };
    }

    private static String quote(String text) {
        StringBuilder out = new StringBuilder("\"");
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            if (c == '"' || c == '\\') {
                out.append('\\').append(c);
            } else if (c < ' ') {
                out.append("\\u00");
                Strings.appendHexByte(out, c);
            } else {
                out.append(c);
            }
        }
        return out.append('"').toString();
    }

    private void send(byte[] body) {
        String failure = "";
        int tries = 0;
        while (tries <= myRetries) {
            tries++;
            try {
                int code = post(body);
                if (code < SERVER_FAULT) {
                    report((code < FIRST_REFUSAL ? "sent to " : "refused by ") + myUrl + " with " +
                                   code + ", try " + tries,
                           null);
                    return;
                }
                failure = "answer " + code;
            } catch (IOException e) {
                failure = Strings.messageOf(e);
            }
            if (tries <= myRetries) {
                ThreadUtil.sleep((long) RETRY_AFTER_MS * tries);
            }
        }
        report("not sent to " + myUrl + " in " + tries + (tries == 1 ? " try: " : " tries: ") +
                       failure,
               null);
    }

    private int post(byte[] body) throws IOException {
        HttpURLConnection connection = (HttpURLConnection) new URL(myUrl).openConnection();
        try {
            int limitMs = (int) Math.min(myTimeLimit.toMilliseconds(), Integer.MAX_VALUE);
            connection.setConnectTimeout(limitMs);
            connection.setReadTimeout(limitMs);
            connection.setRequestMethod("POST");
            connection.setRequestProperty("Content-Type", "application/json; charset=utf-8");
            connection.setDoOutput(true);
            connection.setFixedLengthStreamingMode(body.length);
            OutputStream out = connection.getOutputStream();
            try {
                out.write(body);
            } finally {
                out.close();
            }
            return connection.getResponseCode();
        } finally {
            connection.disconnect();
        }
    }
}
