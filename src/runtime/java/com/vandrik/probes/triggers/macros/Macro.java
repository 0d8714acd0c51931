package com.vandrik.probes.triggers.macros;

import com.vandrik.probes.triggers.MethodCall;
import com.vandrik.probes.triggers.TelemetryValues;
import com.vandrik.runtime.Callback;
import com.vandrik.runtime.ThreadDump;

/** The macros of message texts, by their names. */
public enum Macro {
    CPU_TIME {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourCPUTimeMs);
        }
    },
    CPU_USAGE {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourCPUUsagePercent);
        }
    },
    GC_TIME {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourGCTotalCollectionTimeMs);
        }
    },
    LOADED_CLASS_COUNT {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourLoadedClassCount);
        }
    },
    THREAD_COUNT {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourLiveThreadCount);
        }
    },
    DAEMON_THREAD_COUNT {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourDaemonThreadCount);
        }
    },
    ALLOCATED_HEAP(MemoryText.OPTIONS) {
        @Override
        String toText(MethodCall call, String option) {
            return MemoryText.of(TelemetryValues.ourHeapMemoryCommited,
                                 TelemetryValues.ourHeapMemoryMax, option);
        }
    },
    ALLOCATED_NON_HEAP(MemoryText.OPTIONS) {
        @Override
        String toText(MethodCall call, String option) {
            return MemoryText.of(TelemetryValues.ourNonHeapMemoryCommited,
                                 TelemetryValues.ourNonHeapMemoryMax, option);
        }
    },
    USED_HEAP(MemoryText.OPTIONS) {
        @Override
        String toText(MethodCall call, String option) {
            return MemoryText.of(TelemetryValues.ourHeapMemoryUsed,
                                 TelemetryValues.ourHeapMemoryMax, option);
        }
    },
    USED_NON_HEAP(MemoryText.OPTIONS) {
        @Override
        String toText(MethodCall call, String option) {
            return MemoryText.of(TelemetryValues.ourNonHeapMemoryUsed,
                                 TelemetryValues.ourNonHeapMemoryMax, option);
        }
    },
    PROCESS_MEMORY("KB", "MB", "GB") {
        @Override
        String toText(MethodCall call, String option) {
            return MemoryText.of(TelemetryValues.getProcessMemory(), 0, option);
        }
    },
    UPTIME("ms") {
        @Override
        String toText(MethodCall call, String option) {
            long uptimeMs = Callback.getUptimeMs();
            return option.isEmpty() ? TimeText.ofUptime(uptimeMs) : Long.toString(uptimeMs);
        }
    },
    EXCEPTION_CLASS {
        @Override
        String toText(MethodCall call, String option) {
            String type = TelemetryValues.ourExceptionClass;
            return type == null ? MacroProcessor.UNKNOWN : type;
        }
    },
    EXCEPTION_COUNT {
        @Override
        String toText(MethodCall call, String option) {
            return toNumber(TelemetryValues.ourExceptionCount);
        }
    },
    DATE_TIME {
        @Override
        String toText(MethodCall call, String option) {
            return TimeText.now();
        }
    },
    THREAD_DUMP {
        @Override
        String toText(MethodCall call, String option) {
            return ThreadDump.getText();
        }
    },
    CURRENT_THREAD_DUMP {
        @Override
        String toText(MethodCall call, String option) {
            return MethodText.currentStack();
        }
    },
    CLASS(true) {
        @Override
        String toText(MethodCall call, String option) {
            return call.myClass.getName();
        }
    },
    METHOD(true) {
        @Override
        String toText(MethodCall call, String option) {
            return call.myMethod;
        }
    },
    SIGNATURE(true) {
        @Override
        String toText(MethodCall call, String option) {
            return call.mySignature;
        }
    },
    PARAM_TYPES(true) {
        @Override
        String toText(MethodCall call, String option) {
            return call.myParameterTypes;
        }
    },
    PARAMS(true, MethodText.TO_STRING) {
        @Override
        String toText(MethodCall call, String option) {
            return call.myParams == null ? MacroProcessor.UNKNOWN
                                         : MacroProcessor.toTexts(call.myParams, !option.isEmpty());
        }
    },
    RETURN_VALUE(true, MethodText.TO_STRING) {
        @Override
        String toText(MethodCall call, String option) {
            return call.isVoid() ? MacroProcessor.VOID : MethodText.of(call.myReturnValue, option);
        }
    },
    THIS(true, MethodText.TO_STRING) {
        @Override
        String toText(MethodCall call, String option) {
            return MethodText.of(call.myThis, option);
        }
    },
    EXCEPTION(true, "MESSAGE") {
        @Override
        String toText(MethodCall call, String option) {
            return MethodText.ofException(call.myException, !option.isEmpty());
        }
    },
    EVAL_FIELD(true) {
        @Override
        String toText(MethodCall call, String option) {
            return MethodText.ofField(call, option);
        }

        /** The name of a field. */
        @Override
        boolean takes(String option) {
            return !option.isEmpty();
        }
    };

    private final boolean myIsOfMethod;
    private final String[] myOptions;

    Macro(String... options) {
        this(false, options);
    }

    Macro(boolean isOfMethod, String... options) {
        myIsOfMethod = isOfMethod;
        myOptions = options;
    }

    /** Null if there is none. */
    public static Macro find(String name) {
        for (Macro macro : values()) {
            if (macro.name().equals(name)) {
                return macro;
            }
        }
        return null;
    }

    public boolean isOfMethod() {
        return myIsOfMethod;
    }

    /** Texts that may stand behind the name. */
    public String[] getOptions() {
        return myOptions.clone();
    }

    boolean takes(String option) {
        for (String known : myOptions) {
            if (known.equals(option)) {
                return true;
            }
        }
        return option.isEmpty();
    }

    abstract String toText(MethodCall call, String option);

    private static String toNumber(long value) {
        return value < 0 ? MacroProcessor.UNKNOWN : Long.toString(value);
    }
}
