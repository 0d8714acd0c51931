package com.vandrik.probes.watch;

import com.vandrik.runtime.Callback;
import com.vandrik.util.Strings;
import java.util.ArrayList;
import java.util.List;

/** What must not be shown, by lines of a text: a pattern of methods, and words behind it. */
final class Masks {
    private static final Masked NOTHING = new Masked();

    private final List<Line> myLines = new ArrayList<Line>();

    /** What is masked of one method. */
    static final class Masked {
        boolean allArguments;
        boolean result;
        boolean object;
        boolean exception;
        private final boolean[] myArguments = new boolean[256];

        boolean hasArgument(int index) {
            return allArguments || (index < myArguments.length && myArguments[index]);
        }
    }

    private static final class Line {
        private final String myClasses;
        private final String myMethods;
        private final String myParameters;
        private final List<String> myWords;

        Line(String pattern, List<String> words) {
            String failure = Callback.validateMethodPattern(pattern);
            if (!Strings.isEmpty(failure)) {
                throw new IllegalArgumentException(failure);
            }
            if (pattern.indexOf('@') >= 0 || !pattern.endsWith(")")) {
                throw new IllegalArgumentException(
                        "annotations and types of results do not go with masks");
            }
            int colon = pattern.indexOf(':');
            int open = pattern.indexOf('(');
            myClasses = pattern.substring(0, colon).trim();
            myMethods = pattern.substring(colon + 1, open).trim();
            myParameters = normalized(pattern.substring(open + 1, pattern.length() - 1));
            myWords = words;
        }

        boolean accepts(String type, String method, String parameters) {
            return Strings.matches(myClasses, type) && Strings.matches(myMethods, method) &&
                    Strings.matches(myParameters, parameters);
        }
    }

    /** Throws an IllegalArgumentException that names the line. */
    Masks(String text) {
        String[] lines = Strings.isEmpty(text) ? new String[0] : text.split("\n");
        for (int i = 0; i < lines.length; i++) {
            String line = lines[i].trim();
            if (line.isEmpty() || line.startsWith("#")) {
                continue;
            }
            try {
                addLine(line);
            } catch (IllegalArgumentException e) {
                throw new IllegalArgumentException("masks, line " + (i + 1) + ": " +
                                                   e.getMessage());
            }
        }
    }

    private void addLine(String line) {
        List<String> words = new ArrayList<String>();
        String rest = line;
        for (int space = lastSpace(rest); space > 0; space = lastSpace(rest)) {
            String word = rest.substring(space + 1);
            if (!mask(new Masked(), word)) {
                break;
            }
            words.add(word);
            rest = rest.substring(0, space).trim();
        }
        if (words.isEmpty()) {
            throw new IllegalArgumentException(
                    "must be PATTERN and then args[0], args, result, this or exception");
        }
        myLines.add(new Line(WatchSettings.completed(rest), words));
    }

    private static int lastSpace(String text) {
        return Math.max(text.lastIndexOf(' '), text.lastIndexOf('\t'));
    }

    /** False if there is no such word. */
    private static boolean mask(Masked masked, String word) {
        if (word.equals("args")) {
            masked.allArguments = true;
        } else if (word.equals("result")) {
            masked.result = true;
        } else if (word.equals("this")) {
            masked.object = true;
        } else if (word.equals("exception")) {
            masked.exception = true;
        } else if (word.matches("args\\[[0-9]{1,2}\\]")) {
            masked.myArguments[Integer.parseInt(word.substring(5, word.length() - 1))] = true;
        } else {
            return false;
        }
        return true;
    }

    Masked of(String type, String method, String signature) {
        if (myLines.isEmpty()) {
            return NOTHING;
        }
        Masked masked = new Masked();
        String parameters = parametersOf(signature);
        for (Line line : myLines) {
            if (line.accepts(type, method, parameters)) {
                for (String word : line.myWords) {
                    mask(masked, word);
                }
            }
        }
        return masked;
    }

    /** Full names without spaces. */
    private static String normalized(String parameters) {
        StringBuilder text = new StringBuilder();
        for (String each : parameters.split(",")) {
            String name = each.trim();
            text.append(text.length() == 0 ? "" : ",");
            boolean isShort = name.startsWith("String") || name.startsWith("Object");
            boolean isWhole = name.length() == 6 || (name.length() > 6 && name.charAt(6) == '[');
            text.append(isShort && isWhole ? "java.lang." + name : name);
        }
        return text.toString();
    }

    /** {@code int,java.lang.String[]} of a descriptor. */
    static String parametersOf(String signature) {
        StringBuilder text = new StringBuilder();
        int dimensions = 0;
        for (int i = 1; signature.charAt(i) != ')'; i++) {
            char kind = signature.charAt(i);
            if (kind == '[') {
                dimensions++;
                continue;
            }
            text.append(text.length() == 0 ? "" : ",");
            if (kind == 'L') {
                int end = signature.indexOf(';', i);
                text.append(signature.substring(i + 1, end).replace('/', '.'));
                i = end;
            } else {
                text.append(primitive(kind));
            }
            for (; dimensions > 0; dimensions--) {
                text.append("[]");
            }
        }
        return text.toString();
    }

    private static String primitive(char kind) {
        String[] names = {"boolean", "byte", "char", "double", "float", "int", "long", "short"};
        return names["ZBCDFIJS".indexOf(kind)];
    }
}
