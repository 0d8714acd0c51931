package com.vandrik.probes.builtin;

import com.vandrik.Constants;
import com.vandrik.runtime.Callback;
import java.util.Locale;

/**
 * Masks what users of the application have entered, before a text is recorded: values in SQL and in
 * the queries of URLs where the option "redact" asks for it, credentials in addresses of databases
 * always. Where a text can be read in two ways, the one that hides more is taken.
 */
final class Redaction {
    private static final String MASK = "?";
    private static final int SQL = 0;
    private static final int QUERY = 1;
    private static final int URI = 2;
    private static final String[] SECRETS = {"user",  "password", "passwd",    "pwd",
                                             "token", "secret",   "credential"};
    private static final boolean IS_ON =
            (Callback.getCapabilities() & Constants.CAPABILITY_REDACTS) != 0;

    private Redaction() {
    }

    static boolean isOn() {
        return IS_ON;
    }

    static String sql(String text) {
        return mask(text, SQL);
    }

    static String query(String text) {
        return mask(text, QUERY);
    }

    static String uri(String text) {
        return mask(text, URI);
    }

    /** A value that stands by itself. */
    static String value(String text) {
        return IS_ON && text != null ? MASK : text;
    }

    /** The address of a database without what follows user, password and the like. */
    static String database(String url) {
        return url == null ? null : maskCredentials(Texts.cut(url));
    }

    /** What can't be masked is not told. */
    private static String mask(String whole, int kind) {
        String text = Texts.cut(whole);
        if (!IS_ON || text == null) {
            return text;
        }
        try {
            return kind == SQL ? maskSql(text) : kind == QUERY ? maskQuery(text) : maskUri(text);
        } catch (RuntimeException e) {
            Outermost.failed(e);
            return MASK;
        }
    }

    /** Literals, and what stands in comments other than hints. */
    static String maskSql(String text) {
        return new SqlMasker(text).run();
    }

    /** Values stay away, names stay. */
    static String maskQuery(String query) {
        StringBuilder masked = new StringBuilder(query.length());
        for (int from = 0; from <= query.length();) {
            int end = indexOfAny(query, "&;", from);
            int equals = query.indexOf('=', from);
            if (equals >= 0 && equals < end) {
                masked.append(query, from, equals + 1);
            }
            masked.append(end > from ? MASK : "");
            if (end < query.length()) {
                masked.append(query.charAt(end));
            }
            from = end + 1;
        }
        return masked.toString();
    }

    /** A path has parameters too, such as a session's number. A query may be behind it. */
    static String maskUri(String uri) {
        int query = uri.indexOf('?');
        String path = query < 0 ? uri : uri.substring(0, query);
        StringBuilder masked = new StringBuilder(uri.length());
        for (int from = 0; from < path.length();) {
            int parameter = path.indexOf(';', from);
            if (parameter < 0) {
                masked.append(path, from, path.length());
                break;
            }
            int end = indexOfAny(path, "/", parameter);
            masked.append(path, from, parameter + 1);
            masked.append(maskQuery(path.substring(parameter + 1, end)));
            from = end;
        }
        return query < 0
                ? masked.toString()
                : masked.append('?').append(maskQuery(uri.substring(query + 1))).toString();
    }

    static String maskCredentials(String url) {
        StringBuilder masked = new StringBuilder(url);
        for (String secret : SECRETS) {
            maskValues(masked, secret);
        }
        // name:password@host or name/password@host
        int at = masked.lastIndexOf("@");
        int path = masked.indexOf("//");
        int begin = path >= 0 && path < at ? path + 2 : masked.lastIndexOf(":", at - 1) + 1;
        if (at > begin && begin > 0 && indexOfAny(masked, "?;&", 0) > at) {
            masked.replace(begin, at, MASK);
        }
        return masked.toString();
    }

    private static void maskValues(StringBuilder text, String name) {
        String lower = text.toString().toLowerCase(Locale.ROOT);
        for (int at = lower.indexOf(name); at >= 0;) {
            int equals = at + name.length();
            while (equals < lower.length() && isNameChar(lower.charAt(equals))) {
                equals++;
            }
            if (equals < lower.length() && lower.charAt(equals) == '=') {
                int end = indexOfAny(lower, "&;,) ", equals + 1);
                text.replace(equals + 1, end, MASK);
                lower = text.toString().toLowerCase(Locale.ROOT);
            }
            at = lower.indexOf(name, equals);
        }
    }

    static boolean isNameChar(char c) {
        return Character.isJavaIdentifierPart(c);
    }

    private static int indexOfAny(CharSequence text, String characters, int from) {
        int at = from;
        while (at < text.length() && characters.indexOf(text.charAt(at)) < 0) {
            at++;
        }
        return at;
    }

    /** One walk over a statement. */
    private static final class SqlMasker {
        private final String myText;
        private final StringBuilder myMasked;
        private int myAt;
        /** Behind "values", "in" and the like quoted names are taken for MySQL's strings. */
        private boolean myIsAmongValues;

        SqlMasker(String text) {
            myText = text;
            myMasked = new StringBuilder(text.length());
        }

        String run() {
            while (myAt < myText.length()) {
                char c = myText.charAt(myAt);
                if (c == '\'') {
                    mask(endOfString('\''));
                } else if (c == '"') {
                    quoted();
                } else if (startsWith("--") || startsWith("/*")) {
                    comment();
                } else if (c == '$' && isDollarQuote()) {
                    mask(endOfDollarQuote());
                } else if (isDigit(c) || c == '.' && isDigit(charAt(myAt + 1))) {
                    mask(endOfNumber());
                } else if (isNameChar(c) || c == ':' || c == '?' || c == '@') {
                    word();
                } else {
                    copy(myAt + 1);
                }
            }
            return myMasked.toString();
        }

        private char charAt(int at) {
            return at >= 0 && at < myText.length() ? myText.charAt(at) : ' ';
        }

        private boolean startsWith(String start) {
            return myText.startsWith(start, myAt);
        }

        private static boolean isDigit(char c) {
            return c >= '0' && c <= '9';
        }

        private void copy(int end) {
            myMasked.append(myText, myAt, end);
            myAt = end;
        }

        private void mask(int end) {
            myMasked.append(MASK);
            myAt = end;
        }

        /** Names, and parameters such as :1, ?1 and $1, whose digits are no values. */
        private void word() {
            int end = myAt + 1;
            while (end < myText.length() && isNameChar(myText.charAt(end))) {
                end++;
            }
            String word = myText.substring(myAt, end);
            if (charAt(end) == '\'' && word.equalsIgnoreCase("q")) {
                mask(endOfOracleQuote(end));
                return;
            }
            if (isKeyword(word, "values", "in", "like", "set", "where")) {
                myIsAmongValues = !word.equalsIgnoreCase("set") && !word.equalsIgnoreCase("where");
            }
            copy(end);
        }

        private static boolean isKeyword(String word, String... keywords) {
            for (String keyword : keywords) {
                if (word.equalsIgnoreCase(keyword)) {
                    return true;
                }
            }
            return false;
        }

        private void quoted() {
            int before = myAt - 1;
            while (before >= 0 && myText.charAt(before) <= ' ') {
                before--;
            }
            boolean isCompared = "=<>".indexOf(charAt(before)) >= 0;
            int end = endOfString('"');
            if (myIsAmongValues || isCompared) {
                mask(end);
            } else {
                copy(end);
            }
        }

        private void comment() {
            boolean isLine = startsWith("--");
            if (startsWith("/*+")) {
                // Hints have no values.
                int end = myText.indexOf("*/", myAt);
                copy(end < 0 ? myText.length() : end + 2);
                return;
            }
            int end = isLine ? myText.indexOf('\n', myAt) : myText.indexOf("*/", myAt + 2);
            myMasked.append(isLine ? "--" : "/*").append(MASK).append(isLine ? "" : "*/");
            myAt = end < 0 ? myText.length() : isLine ? end : end + 2;
        }

        /** Behind the closing quote; two stand for one. */
        private int endOfString(char quote) {
            for (int at = myAt + 1; at < myText.length(); at++) {
                char c = myText.charAt(at);
                if (c == '\\' && charAt(at + 1) == quote) {
                    // An escape to some databases, the end of the string to others.
                    return Math.max(myText.lastIndexOf(quote) + 1, at + 2);
                }
                if (c == quote) {
                    if (charAt(at + 1) != quote) {
                        return at + 1;
                    }
                    at++;
                }
            }
            return myText.length();
        }

        /** q'[...]' with any pair of characters. */
        private int endOfOracleQuote(int quote) {
            char open = charAt(quote + 1);
            int pair = "[{(<".indexOf(open);
            char close = pair < 0 ? open : "]})>".charAt(pair);
            int end = myText.indexOf(close + "'", quote + 2);
            return end < 0 ? myText.length() : end + 2;
        }

        private boolean isDollarQuote() {
            int at = endOfTag();
            return !isDigit(charAt(myAt + 1)) && charAt(at) == '$';
        }

        private int endOfTag() {
            int at = myAt + 1;
            while (at < myText.length() && isNameChar(myText.charAt(at)) &&
                   myText.charAt(at) != '$') {
                at++;
            }
            return at;
        }

        private int endOfDollarQuote() {
            String tag = myText.substring(myAt, endOfTag() + 1);
            int end = myText.indexOf(tag, myAt + tag.length());
            return end < 0 ? myText.length() : end + tag.length();
        }

        private int endOfNumber() {
            int at = myAt;
            while (at < myText.length()) {
                char c = myText.charAt(at);
                boolean isSign = (c == '+' || c == '-') && isExponent(at - 1);
                if (!isNameChar(c) && c != '.' && !isSign) {
                    break;
                }
                at++;
            }
            return at;
        }

        private boolean isExponent(int at) {
            return (charAt(at) == 'e' || charAt(at) == 'E') && at > myAt &&
                    !myText.startsWith("0x", myAt);
        }
    }
}
