import com.vandrik.probes.*;

/** Probe classes: each but the last ones breaks a rule, and ProbeRegistrationTest names which. */
// clang-format off
public class Faults {
  @MethodPattern("a.b:c()") static class Hidden { public static void onEnter() {} }
  @MethodPattern("a.b:c()") public static class Enters {
    public static void onEnter() {} public static void onEnter(@This Object o) {} }
  @MethodPattern("a.b:c()") public static class Returns {
    public static void onReturn() {} public static void onReturn(@This Object o) {} }
  @MethodPattern("a.b:c()") public static class Throws {
    public static void onUncaughtException() {}
    public static void onUncaughtException(@This Object o) {} }
  @MethodPattern("a.b:c()") public static class ThrowsExt {
    public static void onUncaughtExceptionExt() {}
    public static void onUncaughtExceptionExt(@This Object o) {} }
  @MethodPattern("a.b:c()") public static class ThrowsInt {
    public static int onUncaughtException() { return 1; } }
  @MethodPattern("a.b:c()") public static class BothThrows {
    public static void onUncaughtException() {}
    public static void onUncaughtExceptionExt() {} }
  @MethodPattern("a.b:c()") public static class TwoTypes {
    public static int onReturn() { return 1; }
    public static long onUncaughtExceptionExt() { return 1; } }
  @MethodPattern("a.b:c()") public static class Nothing { public static void enter() {} }
  @MethodPattern("a.b:c()") public static class AllPrivate {
    static void onEnter() {} public void onReturn() {}
    private static void onUncaughtException() {} }
  @MethodPattern("a.b:c()") public static class Bare {
    public static void onEnter(@This Object o, @Deprecated int plain) {} }
  @MethodPattern("a.b:c()") public static class Double {
    public static void onEnter(@Param(1) @This Object o) {} }
  @MethodPattern("a.b:c()") public static class Texts {
    public static void onEnter(@MethodName Object a, @MethodSignature int b,
                               @MethodParameterTypes Object c) {} }
  @MethodPattern("a.b:c()") public static class Refs {
    public static void onEnter(@ClassRef Object a) {} }
  @MethodPattern("a.b:c()") public static class Thrown {
    public static void onReturn(@ThrownException Throwable t) {}
    public static void onUncaughtException(@ThrownException Exception e,
        @ThrownException Throwable t, @ThrownException Throwable u) {} }
  @MethodPattern("a.b:c()") public static class Many {
    public static void onEnter(@Params String[] a, @Params Object[] b, @Params Object[] c) {} }
  @MethodPattern("a.b:c()") public static class Mine {
    public static void onEnter(@This int[] a, @This String b, @This String c) {}
    public static void onReturn(@This Object a) {} }
  @InstanceOf("java.util.List") @MethodPattern("a.b:c()") public static class Lists {
    public static void onEnter(@This java.util.List<String> list) {} }
  @MethodPattern("a.b:c()") public static class Results {
    public static int onEnter(@OnEnterResult int a, @ReturnValue int b) { return 1; }
    public static void onReturn(@OnEnterResult long a, @OnEnterResult int b,
        @OnEnterResult int c, @ReturnValue Object d) {} }
  @MethodPattern("a.b:c()") public static class NoEnter {
    public static void onReturn(@OnEnterResult int a) {} }
  @MethodPattern("a.b:c()") public static class Zero {
    public static void onEnter(@Param(0) int a, @Param(-1) int b) {} }
  @MethodPattern({"a.b:c", "a.b:d()", "a..b:c()"}) public static class Patterns {
    public static void onEnter() {} }
  @MethodPattern("a.b:c()") public static class Unused {
    public static int onEnter() { return 1; } }
  public static class Plain { public static void onEnter() {} }

  // Nothing is wrong with these.
  @MethodPattern({"a.b:c(int)", "@x.Class *:@y.Method <init>(*) void"})
  public static class Whole {
    public static long onEnter(@Param(2) int a, @Params Object[] b, @This String c,
        @MethodName String d, @MethodSignature String e, @MethodParameterTypes String f,
        @ClassRef Class<?> g) throws java.io.IOException { return 1; }
    public static int onReturn(@OnEnterResult long a, @ReturnValue int b, @This String c)
        throws java.io.IOException, java.sql.SQLException { return 1; }
    public static int onUncaughtExceptionExt(@ThrownException Throwable t) { return 1; } }
  @InstanceOf("java.util.Map$Entry") @MethodPattern("a.b:c()") public static class Entries {
    public static void onEnter(@This Object o) {} }
  @MethodPattern("a.b:c()") public static class Objects {
    public static void onEnter(@This Object o) {}
    public static void onReturn(@This Object o) {}
    public static void onUncaughtExceptionExt() {} }
}
