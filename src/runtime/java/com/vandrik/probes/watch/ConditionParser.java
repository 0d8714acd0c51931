package com.vandrik.probes.watch;

import java.util.ArrayList;
import java.util.List;

/** From text to condition; docs/protocol.md has the grammar. */
final class ConditionParser {
    static final String EQUAL = "==";
    static final String UNEQUAL = "!=";
    static final String CONTAINS = "~";

    private static final String[] COMPARISONS = {EQUAL, UNEQUAL, "<=", ">=", "<", ">", CONTAINS};
    private static final String[] SYMBOLS = {"&&", "||", "!", "(", ")", "[", "]", ".", "-"};
    private static final int LONGEST = 1000;
    /** A condition is asked on any stack of the application, one call deeper for each. */
    private static final int DEEPEST = 20;

    private final String myText;
    /** Where the token begins and ends; an empty one is the end. */
    private int myStart;
    private int myEnd;
    private int myDepth;

    ConditionParser(String text) {
        myText = text;
    }

    /** Throws an IllegalArgumentException that names the place. */
    Condition parse() {
        if (myText.length() > LONGEST) {
            throw new IllegalArgumentException("where: longer than " + LONGEST + " characters");
        }
        next();
        Condition condition = any();
        if (myStart < myText.length()) {
            throw failure("&& or || is expected");
        }
        return condition;
    }

    private Condition any() {
        List<Condition> parts = new ArrayList<Condition>();
        do {
            parts.add(all());
        } while (skip("||"));
        return parts.size() == 1 ? parts.get(0) : new Condition.Group(parts, false);
    }

    private Condition all() {
        List<Condition> parts = new ArrayList<Condition>();
        do {
            parts.add(single());
        } while (skip("&&"));
        return parts.size() == 1 ? parts.get(0) : new Condition.Group(parts, true);
    }

    private Condition single() {
        if (token().equals("!") || token().equals("(")) {
            return nested();
        }
        Operand left = operand();
        for (String operator : COMPARISONS) {
            if (skip(operator)) {
                return new Condition.Comparison(left, operator, operand());
            }
        }
        return new Condition.Truth(left);
    }

    private Condition nested() {
        if (++myDepth > DEEPEST) {
            throw failure("! and ( within each other more than " + DEEPEST + " deep");
        }
        Condition inner;
        if (skip("!")) {
            inner = new Condition.Not(single());
        } else {
            expect("(");
            inner = any();
            expect(")");
        }
        myDepth--;
        return inner;
    }

    private Operand operand() {
        String token = token();
        char first = token.isEmpty() ? ' ' : token.charAt(0);
        if (first == '"' || first == '\'') {
            String text = unquoted(token);
            next();
            return Operand.constant(text);
        }
        if (first == '-' || isDigit(first)) {
            return Operand.constant(number());
        }
        if (skip("true") || skip("false")) {
            return Operand.constant(Boolean.valueOf(token));
        }
        if (skip("null")) {
            return Operand.constant(null);
        }
        if (skip("ms")) {
            return Operand.of(Operand.Root.MILLISECONDS, 0, null);
        }
        if (skip("thread")) {
            return Operand.of(Operand.Root.THREAD, 0, null);
        }
        return ofCall(token);
    }

    private Operand ofCall(String name) {
        if (skip("args")) {
            expect("[");
            int index = index();
            expect("]");
            return Operand.of(Operand.Root.ARGUMENT, index, fields());
        }
        if (skip("result")) {
            return Operand.of(Operand.Root.RESULT, 0, fields());
        }
        if (skip("this")) {
            return Operand.of(Operand.Root.THIS, 0, fields());
        }
        if (skip("exception")) {
            return Operand.of(Operand.Root.EXCEPTION, 0, fields());
        }
        throw failure("args[0], result, this, exception, ms, thread, a number or a text is"
                      + " expected");
    }

    private int index() {
        String token = token();
        if (token.isEmpty() || token.length() > 3 || !isDigit(token.charAt(0)) ||
            token.indexOf('.') >= 0) {
            throw failure("the number of an argument is expected, from 0 on");
        }
        next();
        return Integer.parseInt(token);
    }

    private List<String> fields() {
        List<String> names = new ArrayList<String>();
        while (skip(".")) {
            String name = token();
            if (name.isEmpty() || !Character.isJavaIdentifierStart(name.charAt(0))) {
                throw failure("the name of a field is expected");
            }
            names.add(name);
            next();
        }
        return names;
    }

    private Number number() {
        String sign = skip("-") ? "-" : "";
        String token = token();
        if (token.isEmpty() || !isDigit(token.charAt(0))) {
            throw failure("a number is expected");
        }
        try {
            Number number = token.indexOf('.') >= 0 ? (Number) Double.valueOf(sign + token)
                                                    : (Number) Long.valueOf(sign + token);
            next();
            return number;
        } catch (NumberFormatException e) {
            throw failure("not a number");
        }
    }

    private String unquoted(String token) {
        char quote = token.charAt(0);
        if (token.length() < 2 || token.charAt(token.length() - 1) != quote) {
            throw failure("the text does not end");
        }
        StringBuilder text = new StringBuilder();
        for (int i = 1; i < token.length() - 1; i++) {
            char c = token.charAt(i);
            if (c != '\\') {
                text.append(c);
                continue;
            }
            char escaped = token.charAt(++i);
            int known = "nt\\\"'".indexOf(escaped);
            if (known < 0 || i == token.length() - 1) {
                throw failure("unknown escape in a text");
            }
            text.append("\n\t\\\"'".charAt(known));
        }
        return text.toString();
    }

    private String token() {
        return myText.substring(myStart, myEnd);
    }

    private boolean skip(String token) {
        if (!token().equals(token)) {
            return false;
        }
        next();
        return true;
    }

    private void expect(String token) {
        if (!skip(token)) {
            throw failure(token + " is expected");
        }
    }

    private void next() {
        myStart = myEnd;
        while (myStart < myText.length() && Character.isWhitespace(myText.charAt(myStart))) {
            myStart++;
        }
        myEnd = myStart;
        if (myStart == myText.length()) {
            return;
        }
        char first = myText.charAt(myStart);
        if (first == '"' || first == '\'') {
            myEnd = endOfText(first);
        } else if (isDigit(first)) {
            myEnd = endOfNumber();
        } else if (Character.isJavaIdentifierStart(first)) {
            while (myEnd < myText.length() &&
                   Character.isJavaIdentifierPart(myText.charAt(myEnd))) {
                myEnd++;
            }
        } else {
            myEnd = myStart + symbolLength();
        }
    }

    /** A text without an end goes to the end of all. */
    private int endOfText(char quote) {
        int end = myStart + 1;
        while (end < myText.length() && myText.charAt(end) != quote) {
            end += myText.charAt(end) == '\\' ? 2 : 1;
        }
        return Math.min(end + 1, myText.length());
    }

    private int endOfNumber() {
        int end = myStart;
        while (end < myText.length() &&
               (isDigit(myText.charAt(end)) || myText.charAt(end) == '.')) {
            end++;
        }
        return end;
    }

    private int symbolLength() {
        for (String operator : COMPARISONS) {
            if (myText.startsWith(operator, myStart)) {
                return operator.length();
            }
        }
        for (String symbol : SYMBOLS) {
            if (myText.startsWith(symbol, myStart)) {
                return symbol.length();
            }
        }
        return 1;
    }

    private static boolean isDigit(char c) {
        return c >= '0' && c <= '9';
    }

    private IllegalArgumentException failure(String reason) {
        String word = myStart == myText.length() ? "the end" : "\"" + token() + "\"";
        return new IllegalArgumentException("where, column " + (myStart + 1) + " at " + word +
                                            ": " + reason);
    }
}
