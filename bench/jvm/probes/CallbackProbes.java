package bench;

import com.vandrik.probes.MethodPattern;
import com.vandrik.probes.Param;
import com.vandrik.probes.Params;

/** Callbacks of {@link WovenCalls}; those that call something are guarded against themselves. */
public final class CallbackProbes {
    static final String[] KINDS = {"none", "two", "all", "noneCalling", "twoCalling", "allCalling"};
    static long calls;
    static Object seen;

    private CallbackProbes() {
    }

    static void count(long by) {
        calls += by;
    }

    @MethodPattern("bench.CalledMethods:none(*)")
    public static final class None {
        private None() {
        }

        public static void onEnter() {
            calls++;
        }
    }

    @MethodPattern("bench.CalledMethods:two(*)")
    public static final class Two {
        private Two() {
        }

        public static void onEnter(@Param(1) long number, @Param(2) Object object) {
            calls += number;
            seen = object;
        }
    }

    @MethodPattern("bench.CalledMethods:all(*)")
    public static final class All {
        private All() {
        }

        public static void onEnter(@Params Object[] all) {
            calls++;
            seen = all;
        }
    }

    @MethodPattern("bench.CalledMethods:noneCalling(*)")
    public static final class NoneCalling {
        private NoneCalling() {
        }

        public static void onEnter() {
            count(1);
        }
    }

    @MethodPattern("bench.CalledMethods:twoCalling(*)")
    public static final class TwoCalling {
        private TwoCalling() {
        }

        public static void onEnter(@Param(1) long number, @Param(2) Object object) {
            count(number);
            seen = object;
        }
    }

    @MethodPattern("bench.CalledMethods:allCalling(*)")
    public static final class AllCalling {
        private AllCalling() {
        }

        public static void onEnter(@Params Object[] all) {
            count(1);
            seen = all;
        }
    }
}
