package bench;

import com.vandrik.probes.MethodPattern;

/** The probes that {@link Registering} registers. */
public final class RegisteredProbes {
    private RegisteredProbes() {
    }

    @MethodPattern("bench.Copied00001:none(*)")
    public static final class OnOne {
        private OnOne() {
        }

        public static void onEnter() {
            CallbackProbes.calls++;
        }
    }

    @MethodPattern("bench.Copied*:none(*)")
    public static final class OnAll {
        private OnAll() {
        }

        public static void onEnter() {
            CallbackProbes.calls++;
        }
    }
}
