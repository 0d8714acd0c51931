package com.vandrik.probes;

import java.lang.annotation.Documented;
import java.lang.annotation.ElementType;
import java.lang.annotation.Retention;
import java.lang.annotation.RetentionPolicy;
import java.lang.annotation.Target;

/**
 * Makes a class a probe, and names the methods that call it:
 * <code>[@annotation ]class:[@annotation ]method(parameters)[ returnType]</code>, with
 * <code>*</code> for any run of characters anywhere and <code>(*)</code> for any parameters. For
 * example <code>com.shop.Cart:add(int, String)</code>, or <code>*Service:@javax.ejb.Remote *(*)
 * java.util.List</code>. In the parameters String and Object stand for those of java.lang.
 *
 * <p>The class must be public. Its callbacks are public static methods, each at most once:
 *
 * <p><code>onEnter</code> runs when a method begins. What it returns is kept for the call, see
 * {@link OnEnterResult}.
 *
 * <p><code>onReturn</code> runs when a method returns. If it returns a value, that is what the
 * method returns, and only methods of this very return type are chosen.
 *
 * <p><code>onUncaughtException</code> runs when an exception leaves a method, and returns nothing.
 *
 * <p><code>onUncaughtExceptionExt</code>, in its place, ends the exception: what it returns is what
 * the method returns.
 *
 * <p>Each parameter of a callback carries one of the annotations of this package that tell what it
 * receives. A checked exception that a callback declares must be declared by the methods too.
 *
 * <p>The agent reads the annotation from the class file; the class is loaded by the first call of a
 * callback.
 */
@Documented
@Retention(RetentionPolicy.CLASS)
@Target(ElementType.TYPE)
public @interface MethodPattern {
    /**
     * The patterns, of which at least one must fit a method.
     *
     * @return one or more of them
     */
    String[] value();
}
