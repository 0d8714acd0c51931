/**
 * What a probe is written with. {@link com.vandrik.probes.MethodPattern} makes a class a probe, the
 * other annotations tell what the parameters of its callbacks receive, and a subclass of
 * {@link com.vandrik.probes.Table} holds what it records.
 *
 * <p>All classes may be used by several threads at once; an operation on a table or a map takes a
 * lock of the agent for a short time. A row is a number, of its table alone. Where no row was made,
 * since the table is full, the thread is one of the agent's or the event too short, the number
 * stands for none, and whatever takes a row ignores it. A null key is in no map or set.
 *
 * <p>Nothing here throws but for faults in the declaration of a table or a probe, with a
 * {@code RuntimeException} whose text tells what is wrong. The classes are the agent's: outside a
 * JVM that it runs in there are none.
 */
package com.vandrik.probes;
