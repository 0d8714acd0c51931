package com.vandrik.probes.watch;

import java.lang.reflect.Array;
import java.util.List;

/** One side of a comparison: a constant, or something of the call and fields behind it. */
final class Operand {
    /** What it begins with. */
    enum Root { CONSTANT, ARGUMENT, RESULT, THIS, EXCEPTION, MILLISECONDS, THREAD }

    private static final String LENGTH = "length";

    private final Root myRoot;
    private final Object myConstant;
    private final int myIndex;
    private final String[] myNames;
    private final FieldReader[] myFields;

    private Operand(Root root, Object constant, int index, List<String> fields) {
        myRoot = root;
        myConstant = constant;
        myIndex = index;
        myNames = fields == null ? new String[0] : fields.toArray(new String[0]);
        myFields = new FieldReader[myNames.length];
        for (int i = 0; i < myFields.length; i++) {
            myFields[i] = new FieldReader(myNames[i]);
        }
    }

    static Operand constant(Object value) {
        return new Operand(Root.CONSTANT, value, 0, null);
    }

    static Operand of(Root root, int index, List<String> fields) {
        return new Operand(root, null, index, fields);
    }

    int needs() {
        switch (myRoot) {
        case ARGUMENT:
            return Condition.ARGUMENTS;
        case RESULT:
            return Condition.RESULT;
        case THIS:
            return Condition.THIS;
        default:
            return 0;
        }
    }

    /** FieldReader.MISSING where the call has no such thing. */
    Object valueOf(WatchedCall call) {
        Object value = rootOf(call);
        for (int i = 0; i < myFields.length && value != FieldReader.MISSING; i++) {
            if (value == null) {
                return FieldReader.MISSING;
            }
            value = value.getClass().isArray() ? myNames[i].equals(LENGTH)
                                                         ? Integer.valueOf(Array.getLength(value))
                                                         : FieldReader.MISSING
                                               : myFields[i].read(value);
        }
        return value;
    }

    private Object rootOf(WatchedCall call) {
        switch (myRoot) {
        case CONSTANT:
            return myConstant;
        case ARGUMENT:
            return call.arguments != null && myIndex < call.arguments.length
                    ? call.arguments[myIndex]
                    : FieldReader.MISSING;
        case RESULT:
            return call.hasResult() ? call.result : FieldReader.MISSING;
        case THIS:
            return call.object == null ? FieldReader.MISSING : call.object;
        case EXCEPTION:
            return call.exception;
        case MILLISECONDS:
            return Double.valueOf(call.durationNs / 1e6);
        default:
            return call.thread.getName();
        }
    }
}
