package com.vandrik.probes;

import java.lang.annotation.Documented;
import java.lang.annotation.ElementType;
import java.lang.annotation.Retention;
import java.lang.annotation.RetentionPolicy;
import java.lang.annotation.Target;

/**
 * Receives one parameter of the method. It must have the very type of that parameter, or be an
 * Object, which receives primitives boxed; otherwise, and where the method has no such parameter,
 * it is null, or zero. At the end of a method it has the value that it had at the beginning.
 */
@Documented
@Retention(RetentionPolicy.CLASS)
@Target(ElementType.PARAMETER)
public @interface Param {
    /**
     * Tells which parameter.
     *
     * @return its number, counted from 1
     */
    int value();
}
