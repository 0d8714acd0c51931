package jvmtest;

import cases.AccessCases;
import cases.AllocationCases;
import cases.BuiltInProbeCases;
import cases.ClientTracingCases;
import cases.ClientWatchCases;
import cases.DebuggerCases;
import cases.DetachCases;
import cases.ExceptionCases;
import cases.HeapDumpCases;
import cases.HeapQuestionCases;
import cases.HeapSnapshotCases;
import cases.MemoryCases;
import cases.ModernJvmCases;
import cases.MonitorCases;
import cases.OfflineCases;
import cases.OnDemandCases;
import cases.ProbeCases;
import cases.ProtocolCases;
import cases.RealProgramCases;
import cases.RewriteOnRequestCases;
import cases.SamplingCases;
import cases.ServerCases;
import cases.SignalSamplingCases;
import cases.SnapshotCases;
import cases.StartCases;
import cases.ThrowCases;
import cases.TracedProgramCases;
import cases.TracingCases;
import cases.TriggerCases;
import cases.TriggerReachCases;
import cases.TriggerRecipeCases;
import cases.VerificationCases;
import cases.WatchCases;

/** Every class that holds cases. */
final class Suites {
    static final Class<?>[] ALL = {
            StartCases.class,          ProtocolCases.class,     SamplingCases.class,
            SnapshotCases.class,       ModernJvmCases.class,    HeapDumpCases.class,
            HeapQuestionCases.class,   TracingCases.class,      TracedProgramCases.class,
            VerificationCases.class,   OfflineCases.class,      RewriteOnRequestCases.class,
            RealProgramCases.class,    ServerCases.class,       ClientTracingCases.class,
            DebuggerCases.class,       ThrowCases.class,        MemoryCases.class,
            AccessCases.class,         AllocationCases.class,   MonitorCases.class,
            ExceptionCases.class,      HeapSnapshotCases.class, BuiltInProbeCases.class,
            ProbeCases.class,          ClientWatchCases.class,  OnDemandCases.class,
            SignalSamplingCases.class, TriggerCases.class,      TriggerReachCases.class,
            TriggerRecipeCases.class,  WatchCases.class,        DetachCases.class,
    };

    private Suites() {
    }
}
