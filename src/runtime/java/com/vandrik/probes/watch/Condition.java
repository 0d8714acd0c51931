package com.vandrik.probes.watch;

import java.util.List;

/** Which calls a watch is about. Parsed once; asked on the threads of the application. */
abstract class Condition {
    static final int ARGUMENTS = 1;
    static final int RESULT = 2;
    static final int THIS = 4;

    abstract boolean holds(WatchedCall call);

    /** Which of the above a call must bring. */
    abstract int operands();

    /** All of them, or any. */
    static final class Group extends Condition {
        private final Condition[] myParts;
        private final boolean myAll;

        Group(List<Condition> parts, boolean all) {
            myParts = parts.toArray(new Condition[0]);
            myAll = all;
        }

        @Override
        boolean holds(WatchedCall call) {
            for (Condition part : myParts) {
                if (part.holds(call) != myAll) {
                    return !myAll;
                }
            }
            return myAll;
        }

        @Override
        int operands() {
            int all = 0;
            for (Condition part : myParts) {
                all |= part.operands();
            }
            return all;
        }
    }

    static final class Not extends Condition {
        private final Condition myPart;

        Not(Condition part) {
            myPart = part;
        }

        @Override
        boolean holds(WatchedCall call) {
            return !myPart.holds(call);
        }

        @Override
        int operands() {
            return myPart.operands();
        }
    }

    /** An operand alone: it is there, and neither null nor false. */
    static final class Truth extends Condition {
        private final Operand myOperand;

        Truth(Operand operand) {
            myOperand = operand;
        }

        @Override
        boolean holds(WatchedCall call) {
            Object value = myOperand.valueOf(call);
            return value != null && value != FieldReader.MISSING && !Boolean.FALSE.equals(value);
        }

        @Override
        int operands() {
            return myOperand.needs();
        }
    }

    static final class Comparison extends Condition {
        private final Operand myLeft;
        private final String myOperator;
        private final Operand myRight;

        Comparison(Operand left, String operator, Operand right) {
            myLeft = left;
            myOperator = operator;
            myRight = right;
        }

        @Override
        int operands() {
            return myLeft.needs() | myRight.needs();
        }

        @Override
        boolean holds(WatchedCall call) {
            Object left = myLeft.valueOf(call);
            Object right = myRight.valueOf(call);
            if (left == FieldReader.MISSING || right == FieldReader.MISSING) {
                return false;
            }
            if (myOperator == ConditionParser.CONTAINS) {
                return left != null && right != null && text(left).contains(text(right));
            }
            if (Values.isNumber(left) && Values.isNumber(right)) {
                return holdsForNumbers((Number) left, (Number) right);
            }
            if (isText(left) && isText(right)) {
                return holdsForOrder(text(left).compareTo(text(right)));
            }
            boolean isEqual = left == right || (left instanceof Boolean && left.equals(right));
            return myOperator == ConditionParser.EQUAL
                    ? isEqual
                    : myOperator == ConditionParser.UNEQUAL && !isEqual;
        }

        private boolean holdsForNumbers(Number left, Number right) {
            if (Values.isWhole(left) && Values.isWhole(right)) {
                long a = left.longValue();
                long b = right.longValue();
                return holdsForOrder(a < b ? -1 : a > b ? 1 : 0);
            }
            double a = left.doubleValue();
            double b = right.doubleValue();
            if (a != a || b != b) {
                return myOperator == ConditionParser.UNEQUAL;
            }
            return holdsForOrder(a < b ? -1 : a > b ? 1 : 0);
        }

        private boolean holdsForOrder(int order) {
            switch (myOperator.charAt(0)) {
            case '=':
                return order == 0;
            case '!':
                return order != 0;
            case '<':
                return order < 0 || (order == 0 && myOperator.length() == 2);
            default:
                return order > 0 || (order == 0 && myOperator.length() == 2);
            }
        }

        private static boolean isText(Object value) {
            return value != null && !(value instanceof Boolean) && !Values.isNumber(value);
        }

        private static String text(Object value) {
            if (value instanceof Boolean || Values.isNumber(value)) {
                return value.toString();
            }
            if (value instanceof Throwable) {
                String message = Values.messageOf((Throwable) value);
                String type = value.getClass().getName();
                return message == null ? type : type + ": " + message;
            }
            String text = Values.textOf(value);
            return text == null ? value.getClass().getName() : text;
        }
    }
}
