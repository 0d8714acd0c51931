package com.vandrik.probes;

import java.lang.annotation.Documented;
import java.lang.annotation.ElementType;
import java.lang.annotation.Retention;
import java.lang.annotation.RetentionPolicy;
import java.lang.annotation.Target;

/**
 * Narrows a probe to methods of objects that are an instance of a class or interface, whatever the
 * class that declares them. Static methods are left out. Without it the type of {@link This} does
 * the same, if that is not Object.
 */
@Documented
@Retention(RetentionPolicy.CLASS)
@Target(ElementType.TYPE)
public @interface InstanceOf {
    /**
     * Names the class or interface.
     *
     * @return its full name, as in <code>java.sql.Statement</code>
     */
    String value();
}
